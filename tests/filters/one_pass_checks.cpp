#include "filters/one_pass_checks.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace kvl::test {
namespace {

RawCall callOf(const TestImage& source, const TestImage& destination) {
  return {source.bits(),
          static_cast<uint32_t>(source.stride()),
          destination.bits(),
          static_cast<uint32_t>(destination.stride()),
          static_cast<uint32_t>(source.width()),
          static_cast<uint32_t>(source.height()),
          componentsOf(source)};
}

// Rows and pixels exchanged; padding left alone.
void mirror(const TestImage& from, TestImage& to, bool horizontally) {
  const auto bytes = static_cast<size_t>(componentsOf(from));
  for (int y = 0; y < from.height(); ++y) {
    for (int x = 0; x < from.width(); ++x) {
      const int fromX = horizontally ? from.width() - 1 - x : x;
      const int fromY = horizontally ? y : from.height() - 1 - y;
      const uint8_t* pixel = from.row(fromY) + static_cast<size_t>(fromX) * bytes;
      std::copy(pixel, pixel + bytes, to.row(y) + static_cast<size_t>(x) * bytes);
    }
  }
}

}  // namespace

TestImage rawImage(int width, int height, int components, GuardAt guard) {
  const auto rowBytes = static_cast<size_t>(width) * static_cast<size_t>(components);
  return {width, height, static_cast<uint16_t>(8 * components), guard, rowBytes + height % 3};
}

int componentsOf(const TestImage& image) {
  return image.header.biBitCount / 8;
}

int sampleAt(const TestImage& image, int64_t x, int64_t y, int c) {
  const int64_t column = std::clamp<int64_t>(x, 0, image.width() - 1);
  const auto row = static_cast<int32_t>(std::clamp<int64_t>(y, 0, image.height() - 1));
  return image.row(row)[column * componentsOf(image) + c];
}

void apply(const Filter& filter, const TestImage& source, TestImage& destination) {
  filter(callOf(source, destination));
}

void expectModel(const Filter& filter, const Model& model, int width, int height, int components,
                 uint64_t seed) {
  const GuardAt guard = seed % 2 != 0 ? GuardAt::end : GuardAt::start;
  TestImage source = rawImage(width, height, components, guard);
  TestImage destination = rawImage(width, height, components, guard);
  source.fillRandom(seed);
  TestImage expected = rawImage(width, height, components);
  for (int y = 0; y < height; ++y) {
    for (int i = 0; i < width * components; ++i) {
      expected.row(y)[i] = static_cast<uint8_t>(model(source, i / components, y, i % components));
    }
  }
  const std::vector<uint8_t> sourceBefore = source.bytes();
  apply(filter, source, destination);
  ASSERT_EQ(firstDifference(expected.bytes(), destination.bytes(), expected.stride(),
                            static_cast<size_t>(components)),
            "")
      << width << " x " << height << " x " << components << ", seed " << seed;
  ASSERT_EQ(sourceBefore, source.bytes());
}

void expectMirror(const Filter& filter, const Filter& mirrored, bool horizontally, int components) {
  TestImage image = rawImage(43, 29, components), flipped = rawImage(43, 29, components);
  TestImage result = rawImage(43, 29, components), flippedResult = rawImage(43, 29, components);
  image.fillRandom(11);
  mirror(image, flipped, horizontally);
  apply(filter, image, result);
  apply(mirrored, flipped, flippedResult);
  TestImage expected = rawImage(43, 29, components);
  mirror(result, expected, horizontally);
  EXPECT_NE(image.bytes(), result.bytes());
  EXPECT_EQ(firstDifference(expected.bytes(), flippedResult.bytes(), expected.stride(),
                            static_cast<size_t>(components)),
            "");
}

void expectCopy(const Filter& filter) {
  const Model same = [](const TestImage& source, int x, int y, int c) {
    return sampleAt(source, x, y, c);
  };
  for (const int components : {1, 3, 4}) expectModel(filter, same, 37, 11, components, 5);
}

void expectUnchanged(const Filter& filter, const std::string& what) {
  TestImage source = rawImage(20, 9, 3), destination = rawImage(20, 9, 3);
  source.fillRandom(1);
  destination.fillRandom(2);
  const std::vector<uint8_t> sourceBefore = source.bytes(), before = destination.bytes();
  apply(filter, source, destination);
  EXPECT_EQ(firstDifference(before, destination.bytes(), destination.stride()), "") << what;
  EXPECT_EQ(sourceBefore, source.bytes()) << what;
}

void expectBadImagesChangeNothing(const Filter& filter, bool takesComponents) {
  const auto spoilt = [&](const char* what, const std::function<void(RawCall&)>& spoil) {
    const auto call = [&](RawCall bad) {
      spoil(bad);
      filter(bad);
    };
    expectUnchanged(call, what);
  };
  spoilt("no source", [](RawCall& c) { c.source = nullptr; });
  spoilt("no destination", [](RawCall& c) { c.destination = nullptr; });
  for (const uint32_t side : {0u, (1u << 20) + 1, UINT32_MAX}) {
    spoilt("width", [&](RawCall& c) {
      c.width = side;
      c.sourceStride = c.destinationStride = UINT32_MAX;
    });
    spoilt("height", [&](RawCall& c) { c.height = side; });
  }
  spoilt("source stride", [](RawCall& c) { c.sourceStride = c.width - 1; });
  spoilt("destination stride", [](RawCall& c) { c.destinationStride = c.width - 1; });
  const uintptr_t far = (uintptr_t{1} << 47) - 100;
  spoilt("source beyond the address space",
         [&](RawCall& c) { c.source = reinterpret_cast<const uint8_t*>(far); });
  spoilt("destination beyond the address space",
         [&](RawCall& c) { c.destination = reinterpret_cast<uint8_t*>(far); });
  if (!takesComponents) return;
  for (const int32_t components : {INT32_MIN, -1, 0, 2, 5, INT32_MAX}) {
    spoilt("components", [&](RawCall& c) { c.components = components; });
  }
}

}  // namespace kvl::test
