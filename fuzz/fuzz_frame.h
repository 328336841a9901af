// What every target of images shares: numbers, memory and the checks round a call.
//
//   Case test(bytes, length);
//   const int32_t width = test.side();
//   uint8_t* image = test.rows(stride, 3 * width, height);
//   test.call([&] { KVL_...(image, ...); });
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "fuzz_input.h"
#include "kvl/kvl.h"
#include "support/guarded_memory.h"

namespace kvl::fuzz {

// Ends the program with a message, which makes the input a finding.
[[noreturn]] void fail(const std::string& message);
inline void require(bool holds, const char* message) {
  if (!holds) fail(message);
}

// What a second call on the same bytes may change.
enum class Results {
  same,     // nothing: neither level nor team
  byLevel,  // bytes depend on the level, of which avx2 and sse41 agree, and never on the team
};

// One input. Everything that it takes from the pool of memory goes back at its end.
//
// Memory lies in the pool's slots so that it ends at an unreadable page or, by input, begins at
// one; the sanitizer watches the other end. It holds bytes from the input.
class Case {
 public:
  // Memory that a target may ask for in one piece, and pieces at once.
  static constexpr size_t maxBytes = 4 << 20;
  static constexpr size_t maxBlocks = 8;

  Case(const uint8_t* bytes, size_t length);
  ~Case();
  Case(const Case&) = delete;
  Case& operator=(const Case&) = delete;

  // ---- numbers -------------------------------------------------------------------------------
  uint8_t byte() { return input_.byte(); }
  // True once in `n` times.
  bool oneIn(int32_t n) { return input_.range(0, n - 1) == n - 1; }
  // A whole number of [low, high], at most 65536 of them.
  int32_t ordinary(int32_t low, int32_t high) { return input_.range(low, high); }
  // The same, or in some of the hostile inputs a number beyond all limits.
  int32_t integer(int32_t low, int32_t high);
  // Of [low, high] in steps of a 65536th of it, or in hostile inputs NaN, infinity, denormal, huge.
  double number(double low, double high);
  float single(float low, float high);
  // A size in pixels: mostly below 40, sometimes up to 1400 (if `many`); in hostile inputs also
  // 0, negative, extreme.
  int32_t side(bool many = true);
  // Of the given values one, or in hostile inputs any.
  uint32_t oneOf(const std::vector<uint32_t>& values);
  // A header of that size, bit count and code; in hostile inputs any field may have any value.
  BITMAPINFOHEADER header(int32_t width, int32_t height, uint16_t bitCount,
                          uint32_t compression = 0);
  // A null pointer instead, in some hostile inputs.
  template <class T>
  T* orNull(T* pointer) {
    return hostile_ && oneIn(16) ? nullptr : pointer;
  }
  bool hostile() const { return hostile_; }
  // What is left of the input.
  const FuzzInput& rest() const { return input_; }
  // Most threads of the calls that call() makes.
  int32_t largestTeam() const;

  // ---- memory --------------------------------------------------------------------------------
  // Pieces of at most maxBytes. Each may be asked for `bytes` or `count` of 0, which gives an
  // address that must not be touched at all.
  uint8_t* readOnly(size_t bytes);
  uint8_t* readOnlyRows(size_t stride, size_t rowBytes, size_t count);
  // `count` rows, from (count - 1) * stride + rowBytes bytes: all else must stay as it was. With
  // Fit::apart there is nothing but unreadable pages between the rows.
  uint8_t* rows(size_t stride, size_t rowBytes, size_t count);
  uint8_t* writable(size_t bytes);
  // May come out different from one call to the next.
  uint8_t* scratch(size_t bytes);
  uint8_t* untouchable() { return readOnly(0); }
  // Narrows what may be written of the memory that was asked for last: `count` rows that begin at
  // `offset`.
  void onlyWritten(size_t offset, size_t stride, size_t rowBytes, size_t count);
  // A record of the target's own that the call fills, or that it must leave as it is.
  void watch(void* record, size_t bytes);
  void keep(const void* record, size_t bytes);

  // ---- calls ---------------------------------------------------------------------------------
  // Calls at the input's level and team, and checks that nothing was written but what may be. In a
  // part of the inputs calls once more from the same bytes at another level and team, and compares.
  void call(const std::function<void()>& body, Results results = Results::same);
  // Whether the last call left all memory as it was.
  bool changedNothing() const;
  // A call that is documented to change nothing.
  void callInVain(const std::function<void()>& body);

 private:
  struct Block {
    uint8_t* data;
    size_t size;
    size_t offset;
    size_t stride;
    size_t rowBytes;
    size_t rowCount;
    bool compared;
    bool pooled;
    bool mapped;  // pages of its own, which go back at the end
    bool startsImage;
    std::vector<uint8_t> before;
    std::vector<uint8_t> after;
  };

  uint8_t* takeApart(size_t stride, size_t rowBytes, size_t count, bool written);
  uint8_t* take(size_t bytes, size_t stride, size_t rowBytes, size_t count, bool compared);
  void fill(uint8_t* data, size_t size);
  void run(int level, int team, const std::function<void()>& body);
  void checkUntouched(const Block& block, size_t index) const;

  FuzzInput input_;
  bool hostile_ = false;
  int level_ = 0;
  int team_ = 1;
  bool twice_ = false;
  std::vector<Block> blocks_;
};

// Whether a case can have `rows` rows of `rowBytes` bytes, `stride` from one to the next: in one
// piece, or, being few, each by itself; or no case can, or no host at all.
enum class Fit { inPool, apart, tooLarge, beyondAddresses };
Fit fitOf(int64_t stride, int64_t rows, int64_t rowBytes);
inline Fit fitOf(int64_t stride, int64_t rows) {
  return fitOf(stride, rows, stride);
}

// Bytes of a row of `width` pixels of 24 bits, ((width + 1) * 3) & ~3; 0 for none, or where they
// pass a signed 32-bit integer.
int64_t row24(int32_t width);
// Bytes of a row of `width` pixels of `bitCount` bits, up to whole 32-bit words.
int64_t rowOf(int32_t width, int32_t bitCount);

}  // namespace kvl::fuzz
