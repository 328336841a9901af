// Runs a fuzz target without libFuzzer, which only clang has: on the files of a folder, and on copies
// of them with bytes changed. The same inputs in the same order each time.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size);

namespace {

using Bytes = std::vector<uint8_t>;

// Below `limit`, by a generator that gives the same on every system.
size_t draw(size_t limit) {
  static uint64_t state = 1;
  state = state * 6364136223846793005u + 1442695040888963407u;
  return static_cast<size_t>((state >> 33) % limit);
}

std::vector<Bytes> filesOf(const char* folder) {
  std::set<std::filesystem::path> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) names.insert(entry.path());
  std::vector<Bytes> files;
  for (const std::filesystem::path& name : names) {
    std::ifstream file(name, std::ios::binary);
    files.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  }
  return files;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<Bytes> files = argc == 3 ? filesOf(argv[2]) : std::vector<Bytes>();
  if (files.empty()) {
    std::fprintf(stderr, "usage: %s COPIES FOLDER, with files in it\n", argv[0]);
    return 2;
  }
  for (const Bytes& file : files) LLVMFuzzerTestOneInput(file.data(), file.size());
  const int copies = std::atoi(argv[1]);
  for (int copy = 0; copy < copies; ++copy) {
    Bytes bytes = files[draw(files.size())];
    for (size_t changes = bytes.empty() ? 0 : 1 + draw(8); changes > 0; --changes) {
      // Targets take their numbers from the end.
      const size_t reach = draw(2) == 0 ? bytes.size() : std::min<size_t>(bytes.size(), 40);
      bytes[bytes.size() - 1 - draw(reach)] = static_cast<uint8_t>(draw(256));
    }
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
  }
  std::printf("%zu files and %d copies\n", files.size(), copies);
  return 0;
}
