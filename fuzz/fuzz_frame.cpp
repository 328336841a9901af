#include "fuzz_frame.h"

#include <omp.h>
#include <sanitizer/asan_interface.h>
#include <sys/mman.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <limits>
#include <memory>

#include "core/instruction_set.h"
#include "core/parallel.h"

// The OpenMP run-time never frees what it keeps about threads of teams that have shrunk.
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() {
  return "leak:libomp";
}

namespace kvl::fuzz {
namespace {

constexpr InstructionSet levels[] = {InstructionSet::avx2, InstructionSet::scalar,
                                     InstructionSet::ssse3, InstructionSet::sse41,
                                     InstructionSet::sse2};
constexpr int teams[] = {1, 1, 2, 1, 3, 1, 2, 7};

constexpr int avx2 = 0, scalar = 1, sse41 = 3;

int anotherTeam(int team) {
  return team == 1 ? 3 : 1;
}

int anotherLevel(int level, Results results) {
  if (results == Results::same) return level == avx2 ? scalar : avx2;
  return level == avx2 ? sse41 : level == sse41 ? avx2 : level;
}

// Slots that live as long as the program; what no case has taken is poisoned.
class Pool {
 public:
  Pool() {
    for (size_t i = 0; i < Case::maxBlocks; ++i) {
      slots_.push_back(std::make_unique<test::GuardedMemory>(Case::maxBytes));
      ASAN_POISON_MEMORY_REGION(slots_[i]->data(), Case::maxBytes);
    }
  }
  uint8_t* take(size_t slot, size_t bytes, bool atStart) {
    if (slot >= Case::maxBlocks || bytes > Case::maxBytes) fail("the target asks for too much");
    uint8_t* data = slots_[slot]->data();
    if (!atStart) {
      data += Case::maxBytes - bytes;
    } else if (bytes == 0) {
      --data;
    }
    ASAN_UNPOISON_MEMORY_REGION(data, bytes);
    return data;
  }

 private:
  std::vector<std::unique_ptr<test::GuardedMemory>> slots_;
};

// What rows may be that lie apart.
constexpr int64_t mostRowBytes = 1 << 16;
constexpr int64_t mostRows = 8;

// Address space for rows that lie far apart, of which only the pages of rows can be used.
class DistantMemory {
 public:
  static constexpr size_t bytes = size_t{36} << 30;

  uint8_t* area(size_t index) {
    while (areas_.size() <= index) {
      void* at =
          mmap(nullptr, bytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
      require(at != MAP_FAILED, "no address space");
      areas_.push_back(static_cast<uint8_t*>(at));
    }
    return areas_[index];
  }
  static void use(uint8_t* data, size_t size) {
    const Pages pages = pagesOf(data, size);
    require(mprotect(pages.first, pages.size, PROT_READ | PROT_WRITE) == 0, "no pages");
    ASAN_POISON_MEMORY_REGION(pages.first, pages.size);
    ASAN_UNPOISON_MEMORY_REGION(data, size);
  }
  static void giveBack(uint8_t* data, size_t size) {
    const Pages pages = pagesOf(data, size);
    ASAN_UNPOISON_MEMORY_REGION(pages.first, pages.size);
    madvise(pages.first, pages.size, MADV_DONTNEED);
    mprotect(pages.first, pages.size, PROT_NONE);
  }

 private:
  struct Pages {
    void* first;
    size_t size;
  };
  static Pages pagesOf(uint8_t* data, size_t size) {
    constexpr uintptr_t page = 4096;
    const auto at = reinterpret_cast<uintptr_t>(data);
    const uintptr_t first = at / page * page, end = (at + size + page - 1) / page * page;
    return {reinterpret_cast<void*>(first), end - first};
  }

  std::vector<uint8_t*> areas_;
};

DistantMemory& distantMemory() {
  static DistantMemory instance;
  return instance;
}

Pool& pool() {
  static Pool instance;
  return instance;
}

void initialiseOnce() {
  static const bool done = [] {
    require(KVL_GetNumOpenMPThreads() == omp_get_max_threads(), "team before initialisation");
    InitKVLWrapper();
    pool();
    return true;
  }();
  (void)done;
}

}  // namespace

void fail(const std::string& message) {
  std::fprintf(stderr, "FAILED: %s\n", message.c_str());
  std::abort();
}

Case::Case(const uint8_t* bytes, size_t length) : input_(bytes, length) {
  initialiseOnce();
  const uint8_t choice = input_.byte();
  level_ = (choice & 15) < 8 ? 0 : (choice & 15) % std::size(levels);
  team_ = teams[choice >> 4 & 7];
  const uint8_t more = input_.byte();
  hostile_ = (more & 3) == 3;
  twice_ = (more & 12) == 12;
  if ((more & 0xf0) == 0xf0 && oneIn(8)) {
    InitKVLWrapper();
    require(KVL_GetNumOpenMPThreads() >= 1, "team after initialisation");
  }
}

Case::~Case() {
  for (const Block& block : blocks_) {
    if (block.pooled) ASAN_POISON_MEMORY_REGION(block.data, block.size);
    if (block.mapped) DistantMemory::giveBack(block.data, block.size);
  }
}

int32_t Case::integer(int32_t low, int32_t high) {
  if (!hostile_ || !oneIn(8)) return ordinary(low, high);
  constexpr int32_t extremes[] = {0,
                                  1,
                                  -1,
                                  2,
                                  255,
                                  256,
                                  32767,
                                  32768,
                                  65535,
                                  65536,
                                  -65536,
                                  1 << 20,
                                  (1 << 20) + 1,
                                  0x15555555,
                                  0x2aaaaaaa,
                                  0x2aaaaaab,
                                  1 << 28,
                                  (1 << 28) - 1,
                                  1 << 29,
                                  1 << 30,
                                  -(1 << 30),
                                  INT32_MAX,
                                  INT32_MAX - 1,
                                  INT32_MAX - 7,
                                  INT32_MIN,
                                  INT32_MIN + 1};
  const uint8_t which = input_.byte();
  if (which < std::size(extremes)) return extremes[which];
  if (which < 64) return which < 45 ? low - 1 - which : high + 1 + which % 16;
  return static_cast<int32_t>(uint32_t{input_.byte()} << 24 | uint32_t{input_.byte()} << 16 |
                              uint32_t{input_.byte()} << 8 | input_.byte());
}

double Case::number(double low, double high) {
  if (!hostile_ || !oneIn(6)) return low + (high - low) * input_.range(0, 65535) / 65535.0;
  using Limits = std::numeric_limits<double>;
  const double extremes[] = {0.0,
                             -0.0,
                             Limits::quiet_NaN(),
                             Limits::infinity(),
                             -Limits::infinity(),
                             Limits::denorm_min(),
                             Limits::min(),
                             Limits::max(),
                             Limits::lowest(),
                             Limits::epsilon(),
                             1e300,
                             -1e300,
                             1e-300,
                             2147483647.0,
                             2147483648.0,
                             -2147483648.0,
                             -2147483649.0,
                             4294967296.0,
                             9.3e18,
                             -9.3e18,
                             1e20,
                             1e-6,
                             0.5,
                             -0.5,
                             std::nextafter(low, -1e308),
                             std::nextafter(high, 1e308)};
  const uint8_t which = input_.byte();
  if (which < std::size(extremes)) return extremes[which];
  uint64_t bits = 0;
  for (int i = 0; i < 8; ++i) bits = bits << 8 | input_.byte();
  double value = 0;
  std::memcpy(&value, &bits, sizeof value);
  return value;
}

float Case::single(float low, float high) {
  const double value = number(low, high);
  const double largest = std::numeric_limits<float>::max();
  if (value > largest) return std::numeric_limits<float>::infinity();
  if (value < -largest) return -std::numeric_limits<float>::infinity();
  return static_cast<float>(value);
}

int32_t Case::largestTeam() const {
  return twice_ ? std::max(team_, anotherTeam(team_)) : team_;
}

int32_t Case::side(bool many) {
  const uint8_t kind = input_.byte();
  if (many && kind >= 252) return integer(400, 1400);
  if (many && kind >= 244) return integer(40, 400);
  return integer(1, kind < 64 ? 8 : kind < 128 ? 20 : 40);
}

uint32_t Case::oneOf(const std::vector<uint32_t>& values) {
  if (hostile_ && oneIn(8)) return static_cast<uint32_t>(integer(0, 65535));
  return values[input_.byte() % values.size()];
}

BITMAPINFOHEADER Case::header(int32_t width, int32_t height, uint16_t bitCount,
                              uint32_t compression) {
  BITMAPINFOHEADER header = {};
  header.biSize = sizeof header;
  header.biWidth = width;
  header.biHeight = height;
  header.biPlanes = 1;
  header.biBitCount = bitCount;
  header.biCompression = compression;
  if (!hostile_ || !oneIn(3)) return header;
  const uint8_t which = input_.byte();
  if ((which & 1) != 0) header.biWidth = integer(0, 40);
  if ((which & 2) != 0) header.biHeight = integer(-40, 40);
  if ((which & 4) != 0) header.biBitCount = static_cast<uint16_t>(integer(0, 40));
  if ((which & 8) != 0) {
    header.biCompression = oneOf({0, 1, 3, 0xE436EB7A, 0xE436EB7B, 0xE436EB7C, 0xE436EB7D,
                                  0xE436EB7E, 0x32595559, 0x59565955});
  }
  if ((which & 16) != 0) {
    header.biSize = static_cast<uint32_t>(integer(0, 100));
    header.biPlanes = static_cast<uint16_t>(integer(0, 3));
    header.biSizeImage = static_cast<uint32_t>(integer(0, 65535));
    header.biClrUsed = static_cast<uint32_t>(integer(0, 256));
  }
  return header;
}

uint8_t* Case::readOnly(size_t bytes) {
  return take(bytes, 0, 0, 0, true);
}

uint8_t* Case::readOnlyRows(size_t stride, size_t rowBytes, size_t count) {
  const size_t bytes = count == 0 ? 0 : (count - 1) * stride + rowBytes;
  return bytes > maxBytes ? takeApart(stride, rowBytes, count, false) : readOnly(bytes);
}

uint8_t* Case::rows(size_t stride, size_t rowBytes, size_t count) {
  const size_t bytes = count == 0 ? 0 : (count - 1) * stride + rowBytes;
  if (bytes > maxBytes) return takeApart(stride, rowBytes, count, true);
  return take(bytes, stride, rowBytes, count, true);
}

uint8_t* Case::takeApart(size_t stride, size_t rowBytes, size_t count, bool written) {
  size_t area = 0;
  for (const Block& block : blocks_) area += block.mapped && block.startsImage ? 1 : 0;
  uint8_t* first = distantMemory().area(area);
  for (size_t row = 0; row < count; ++row) {
    uint8_t* data = first + row * stride;
    DistantMemory::use(data, rowBytes);
    fill(data, rowBytes);
    const size_t rowCount = written ? 1 : 0;
    blocks_.push_back(
        {data, rowBytes, 0, rowBytes, rowBytes, rowCount, true, false, true, row == 0, {}, {}});
  }
  return first;
}

uint8_t* Case::writable(size_t bytes) {
  return take(bytes, bytes, bytes, 1, true);
}

uint8_t* Case::scratch(size_t bytes) {
  return take(bytes, bytes, bytes, 1, false);
}

void Case::onlyWritten(size_t offset, size_t stride, size_t rowBytes, size_t count) {
  Block& block = blocks_.back();
  block.offset = offset;
  block.stride = stride;
  block.rowBytes = rowBytes;
  block.rowCount = count;
}

void Case::watch(void* record, size_t bytes) {
  blocks_.push_back({static_cast<uint8_t*>(record),
                     bytes,
                     0,
                     bytes,
                     bytes,
                     1,
                     true,
                     false,
                     false,
                     false,
                     {},
                     {}});
}

void Case::keep(const void* record, size_t bytes) {
  uint8_t* data = static_cast<uint8_t*>(const_cast<void*>(record));
  blocks_.push_back({data, bytes, 0, 0, 0, 0, true, false, false, false, {}, {}});
}

uint8_t* Case::take(size_t bytes, size_t stride, size_t rowBytes, size_t count, bool compared) {
  size_t slot = 0;
  for (const Block& block : blocks_) slot += block.pooled ? 1 : 0;
  const bool atStart = input_.byte() % 4 == 3;
  uint8_t* data = pool().take(slot, bytes, atStart);
  fill(data, bytes);
  blocks_.push_back(
      {data, bytes, 0, stride, rowBytes, count, compared, true, false, false, {}, {}});
  return data;
}

// Noise, bytes of the input over and over, flat, or black and white. A long piece repeats its
// beginning, which is quick.
void Case::fill(uint8_t* data, size_t size) {
  constexpr size_t longest = 2003;
  const size_t own = std::min(size, longest);
  const uint8_t kind = input_.byte();
  uint64_t state = 0x9e3779b97f4a7c15u + kind;
  const auto noise = [&state] {
    state = state * 6364136223846793005u + 1442695040888963407u;
    return static_cast<uint8_t>(state >> 56);
  };
  switch (kind % 4) {
    case 0:
      for (size_t i = 0; i < own; ++i) data[i] = noise();
      break;
    case 1: {
      const size_t period = input_.size();
      for (size_t i = 0; i < own; ++i) data[i] = period == 0 ? kind : input_.data()[i % period];
      break;
    }
    case 2:
      if (own > 0) std::memset(data, input_.byte(), own);
      break;
    default:
      for (size_t i = 0; i < own; ++i) data[i] = (noise() & 1) != 0 ? 255 : 0;
  }
  for (size_t at = own; at < size; at += longest) {
    std::memcpy(data + at, data, std::min(longest, size - at));
  }
}

void Case::run(int level, int team, const std::function<void()>& body) {
  limitInstructionSet(levels[level]);
  fixTeamSize(team);
  require(KVL_GetNumOpenMPThreads() == team, "the team's size is not the one that was set");
  body();
  require(KVL_GetNumOpenMPThreads() == team, "a call has changed the team's size");
}

void Case::checkUntouched(const Block& block, size_t index) const {
  const auto check = [&](size_t first, size_t end) {
    if (std::memcmp(block.data + first, block.before.data() + first, end - first) == 0) return;
    while (block.data[first] == block.before[first]) ++first;
    fail("byte " + std::to_string(first) + " of " + std::to_string(block.size) + " of memory " +
         std::to_string(index) + " was written");
  };
  size_t at = 0;
  for (size_t row = 0; row < block.rowCount; ++row) {
    const size_t start = block.offset + row * block.stride;
    if (start > at) check(at, start);
    at = std::max(at, start + block.rowBytes);
  }
  if (at < block.size) check(at, block.size);
}

void Case::call(const std::function<void()>& body, Results results) {
  for (Block& block : blocks_) block.before.assign(block.data, block.data + block.size);
  run(level_, team_, body);
  for (size_t i = 0; i < blocks_.size(); ++i) checkUntouched(blocks_[i], i);
  if (!twice_) return;

  for (Block& block : blocks_) {
    block.after.assign(block.data, block.data + block.size);
    if (block.rowCount > 0) std::copy(block.before.begin(), block.before.end(), block.data);
  }
  const int level = anotherLevel(level_, results);
  const int team = anotherTeam(team_);
  run(level, team, body);
  for (size_t i = 0; i < blocks_.size(); ++i) {
    const Block& block = blocks_[i];
    checkUntouched(block, i);
    if (!block.compared || block.rowCount == 0 || block.size == 0) continue;
    if (std::memcmp(block.data, block.after.data(), block.size) == 0) continue;
    for (size_t k = 0; k < block.size; ++k) {
      if (block.data[k] == block.after[k]) continue;
      fail("byte " + std::to_string(k) + " of " + std::to_string(block.size) + " of memory " +
           std::to_string(i) + " is " + std::to_string(block.after[k]) + " at level " +
           std::to_string(static_cast<int>(levels[level_])) + " with team " +
           std::to_string(team_) + " and " + std::to_string(block.data[k]) + " at level " +
           std::to_string(static_cast<int>(levels[level])) + " with team " + std::to_string(team));
    }
  }
}

bool Case::changedNothing() const {
  return std::all_of(blocks_.begin(), blocks_.end(), [](const Block& block) {
    return std::equal(block.before.begin(), block.before.end(), block.data);
  });
}

void Case::callInVain(const std::function<void()>& body) {
  for (Block& block : blocks_) {
    block.before.assign(block.data, block.data + block.size);
    block.rowCount = 0;
  }
  call(body);
}

Fit fitOf(int64_t stride, int64_t rows, int64_t rowBytes) {
  int64_t product = 0;
  if (__builtin_mul_overflow(stride, rows, &product) || product >= int64_t{1} << 47) {
    return Fit::beyondAddresses;
  }
  if (product <= static_cast<int64_t>(Case::maxBytes)) return Fit::inPool;
  const bool apart = rowBytes <= mostRowBytes && stride >= 4 * mostRowBytes && rows <= mostRows &&
                     product <= static_cast<int64_t>(DistantMemory::bytes);
  return apart ? Fit::apart : Fit::tooLarge;
}

int64_t row24(int32_t width) {
  if (width <= 0) return 0;
  const int64_t bytes = (int64_t{width} + 1) * 3 & ~int64_t{3};
  return bytes > INT32_MAX ? 0 : bytes;
}

int64_t rowOf(int32_t width, int32_t bitCount) {
  if (width <= 0 || bitCount <= 0) return 0;
  return (int64_t{width} * bitCount + 31) / 32 * 4;
}

}  // namespace kvl::fuzz
