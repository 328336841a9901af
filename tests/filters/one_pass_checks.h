// What the tests of the one-pass filters on raw images share.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "support/test_image.h"

namespace kvl::test {

struct RawCall {
  const uint8_t* source;
  uint32_t sourceStride;
  uint8_t* destination;
  uint32_t destinationStride;
  uint32_t width;
  uint32_t height;
  int32_t components;
};

using Filter = std::function<void(const RawCall&)>;
// The result that a plain model expects of component c of pixel (x, y).
using Model = std::function<int(const TestImage& source, int x, int y, int c)>;

TestImage rawImage(int width, int height, int components, GuardAt guard = GuardAt::end);
int componentsOf(const TestImage& image);
// The sample of the nearest pixel inside the image.
int sampleAt(const TestImage& image, int64_t x, int64_t y, int c);

void apply(const Filter& filter, const TestImage& source, TestImage& destination);

// Runs the filter over noise that ends, or begins, at an unreadable page, and compares the whole
// destination, padding included.
void expectModel(const Filter& filter, const Model& model, int width, int height, int components,
                 uint64_t seed);

// `mirrored` applied to the mirrored image gives the mirrored result of `filter`.
void expectMirror(const Filter& filter, const Filter& mirrored, bool horizontally, int components);

void expectCopy(const Filter& filter);
void expectUnchanged(const Filter& filter, const std::string& what);
// Null pointers, sizes, strides and addresses that no image can have; and, where the filter takes
// it, component counts.
void expectBadImagesChangeNothing(const Filter& filter, bool takesComponents = true);

}  // namespace kvl::test
