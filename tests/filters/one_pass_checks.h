// What the tests of the one-pass filters on raw images share.
#pragma once

#include <functional>

#include "support/testing.h"

namespace kvl::test {

// The filter of an export that takes source, its stride, destination, its stride, width, height.
using Filter = std::function<void(const TestImage& source, const TestImage& destination)>;
// The result that a plain model expects of component c of pixel (x, y).
using Model = std::function<int(const TestImage& source, int x, int y, int c)>;

inline TestImage rawImage(int width, int height, int components, GuardAt guard = GuardAt::end) {
  const auto rowBytes = static_cast<size_t>(width) * static_cast<size_t>(components);
  return {width, height, static_cast<uint16_t>(8 * components), guard, rowBytes + height % 3};
}

// The sample of the nearest pixel inside the image.
inline int sampleAt(const TestImage& image, int64_t x, int64_t y, int c) {
  const int64_t column = std::clamp<int64_t>(x, 0, image.width() - 1);
  const auto row = static_cast<int32_t>(std::clamp<int64_t>(y, 0, image.height() - 1));
  return image.row(row)[column * static_cast<int64_t>(image.bytesPerPixel()) + c];
}

// call(source, its stride, destination, its stride, width, height, components)
template <class Call>
Filter filterOf(const Call& call) {
  return [=](const TestImage& source, const TestImage& destination) {
    call(source.bits(), static_cast<uint32_t>(source.stride()), destination.bits(),
         static_cast<uint32_t>(destination.stride()), static_cast<uint32_t>(source.width()),
         static_cast<uint32_t>(source.height()), static_cast<int32_t>(source.bytesPerPixel()));
  };
}

// Runs the filter over noise that ends, or begins, at an unreadable page, and compares the whole
// destination, padding included.
inline void expectModel(const Filter& filter, const Model& model, int width, int height,
                        int components, uint64_t seed) {
  TestImage source = rawImage(width, height, components, guardOf(seed));
  const TestImage destination = rawImage(width, height, components, guardOf(seed));
  const TestImage expected = rawImage(width, height, components);
  source.fillRandom(seed);
  for (int y = 0; y < height; ++y) {
    for (int i = 0; i < width * components; ++i) {
      expected.row(y)[i] = static_cast<uint8_t>(model(source, i / components, y, i % components));
    }
  }
  const std::vector<uint8_t> before = source.bytes();
  filter(source, destination);
  expectBytes(expected.bytes(), destination,
              text(width, " x ", height, " x ", components, ", seed ", seed));
  expectBytes(before, source, "source");
}

// Every small width with some heights, and 1, 3 and 4 components in turn.
inline void forEverySmallImage(
    const std::function<void(int width, int height, int components, uint64_t seed)>& body) {
  forEachLevel([&] {
    uint64_t seed = 1;
    for (int width = 1; width <= 40; ++width) {
      for (const int height : {1, 2, 5, 33 - width % 7}) {
        body(width, height, seed % 3 == 0 ? 1 : seed % 3 == 1 ? 3 : 4, seed);
        ++seed;
      }
    }
  });
}

// Null pointers, sizes, strides and addresses that no image can have. The call's images are of one
// component, and `destination` is the one that it would write.
template <class Calls>
void expectBadImagesChangeNothing(Calls& calls, const TestImage& destination) {
  constexpr uint32_t tooLarge = (1u << 20) + 1;
  const uintptr_t nearTheEnd = (uintptr_t{1} << 47) - 100;
  const auto width = static_cast<uint32_t>(destination.width());
  calls.watch(destination);
  calls.eachNull();
  calls.template with<0>({reinterpret_cast<const uint8_t*>(nearTheEnd)});
  calls.template with<2>({reinterpret_cast<uint8_t*>(nearTheEnd)});
  calls.template with<1>({width - 1});
  calls.template with<3>({width - 1});
  calls.template with<4>({0u});
  calls.template with<1, 3, 4>({tooLarge, UINT32_MAX});
  calls.template with<5>({0u, tooLarge, UINT32_MAX});
}

inline const std::initializer_list<int32_t> badComponents = {INT32_MIN, -1, 0, 2, 5, INT32_MAX};

}  // namespace kvl::test
