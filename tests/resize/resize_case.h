// What the resize tests share: one resize with its images, and exact models of its result.
#pragma once

#include <string>
#include <vector>

#include "kvl/kvl.h"
#include "support/test_image.h"

namespace kvl::test {

struct SourceRect {
  double left, top, right, bottom;
};

struct ResizeCase {
  TestImage source;
  TestImage destination;
  SourceRect rect;
  RECT into;
  uint32_t flags = 0;

  // The whole source into the whole destination.
  ResizeCase(int32_t fromWidth, int32_t fromHeight, int32_t toWidth, int32_t toHeight,
             uint16_t bitCount = 24, GuardAt guard = GuardAt::end);

  int32_t components() const { return source.header.biBitCount / 8; }
  int32_t setUp(ResizeSetup& setup, uint64_t& needed);

  // Two-phase, with a guarded work buffer of exactly the size that set-up asks for; must succeed.
  void run();
  // What run() left in its work buffer.
  std::vector<uint8_t> work;

  // A sample of the result, y counted from the bottom.
  int at(int32_t x, int32_t y, int32_t component = 0) const;
  int sourceAt(int32_t x, int32_t y, int32_t component = 0) const;
};

// The shares of the samples of one output: in 1/16384 as the library has them, or exact.
struct Share {
  int32_t sample;
  double share;
};
using Shares = std::vector<Share>;

// One axis: the outputs that are drawn, counted within the clip.
struct AxisModel {
  double start, end;
  int32_t outputs;
  int32_t samples;
  bool border = false;

  double scale() const { return (end - start) / outputs; }
  int32_t firstOutput() const;
  int32_t endOutput() const;
  int32_t firstSample() const;
  int32_t endSample() const;
  Shares libraryShares(int32_t output) const;
  Shares exactShares(int32_t output) const;
};

AxisModel horizontalModel(const ResizeCase& c, const RECT& clip);
AxisModel verticalModel(const ResizeCase& c, const RECT& clip);

// The destination's bytes after the call, by the documented arithmetic.
std::vector<uint8_t> modelBytes(const ResizeCase& c, const std::vector<uint8_t>& before);

// Every drawn sample in double precision without any rounding, with the result beside it.
struct Sample {
  double exact;
  int result;
};
std::vector<Sample> exactSamples(const ResizeCase& c);
double psnr(const std::vector<Sample>& samples);

}  // namespace kvl::test
