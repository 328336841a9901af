#include "byte_file.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "error.h"
#include "interrupt.h"

namespace kvl::tool {

std::vector<uint8_t> readBytes(const std::string& path, size_t most) {
  const File opened(path == "-" ? nullptr : std::fopen(path.c_str(), "rb"));
  std::FILE* file = path == "-" ? stdin : opened.get();
  if (file == nullptr) throw Error(inputName(path), std::strerror(errno));
  std::vector<uint8_t> bytes;
  uint8_t block[65536];
  errno = 0;
  while (bytes.size() < most) {
    const size_t got = std::fread(block, 1, std::min(sizeof block, most - bytes.size()), file);
    if (got == 0) break;
    bytes.insert(bytes.end(), block, block + got);
    throwIfInterrupted();
  }
  if (std::ferror(file) != 0) throw Error(inputName(path), std::strerror(errno));
  return bytes;
}

ByteWriter::ByteWriter(const std::string& path) : name_(outputName(path)) {
  if (path == "-") return;
  part_.emplace(path);
  file_.reset(std::fopen(part_->path().c_str(), "wb"));
  check(file_ != nullptr);
}

void ByteWriter::write(const uint8_t* bytes, size_t count) {
  throwIfInterrupted();
  check(std::fwrite(bytes, 1, count, stream()) == count);
}

void ByteWriter::finish() {
  throwIfInterrupted();
  check(std::fflush(stream()) == 0);
  if (!part_) return;
  check(std::fclose(file_.release()) == 0);
  part_->keep();
}

void ByteWriter::check(bool done) const {
  if (!done) throw Error(name_, std::string("cannot be written (") + std::strerror(errno) + ")");
}

}  // namespace kvl::tool
