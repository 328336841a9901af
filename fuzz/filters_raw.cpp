// The filters that take rows of samples without a header.
#include <algorithm>
#include <cmath>

#include "fuzz_frame.h"

namespace {

using namespace kvl::fuzz;

uint32_t strideFrom(Case& test, int64_t rowBytes) {
  if (test.hostile() && test.oneIn(8)) return static_cast<uint32_t>(test.integer(0, 100));
  if (test.oneIn(32)) return (1u << 28) * static_cast<uint32_t>(test.ordinary(1, 16)) - 1;
  const auto least = static_cast<uint32_t>(std::min<int64_t>(rowBytes, UINT32_MAX - 64));
  return least + static_cast<uint32_t>(test.oneIn(2) ? test.ordinary(0, 40) : 0);
}

size_t bytes(int64_t count) {
  return static_cast<size_t>(count);
}

int32_t componentsFrom(Case& test, bool four) {
  constexpr int32_t counts[] = {3, 1, 3, 4};
  if (test.hostile() && test.oneIn(8)) return test.integer(0, 5);
  return counts[test.byte() % (four ? 4 : 2)];
}

void classicBlur(Case& test) {
  const bool several = test.byte() % 2 == 0;
  const auto width = static_cast<uint32_t>(test.side());
  const auto height = static_cast<uint32_t>(test.side());
  const int32_t components = several ? componentsFrom(test, false) : 3;
  const int32_t layout = several ? test.integer(1, 1) : 1;
  const int32_t threshold = test.oneIn(2) ? 255 : test.integer(1, 300);
  const float radius = test.single(0.01f, 12);
  const bool known = components == 1 || components == 3;
  const int64_t pixelBytes = known ? components : 3;
  const int64_t rowBytes = pixelBytes * width, columnBytes = pixelBytes * height;
  const uint32_t imageStride = strideFrom(test, rowBytes);
  const uint32_t workStride = strideFrom(test, columnBytes);

  const bool strides =
      (height <= 1 || imageStride >= rowBytes) && (width <= 1 || workStride >= columnBytes);
  const double taps = std::floor(double{radius} + 0.5);
  const bool normal = threshold == 255 || 2 * taps * threshold <= INT32_MAX;
  const Fit fit = std::max({fitOf(imageStride, height, rowBytes),
                            fitOf(workStride, width, columnBytes), fitOf(rowBytes, height)});
  const bool accepted = known && layout == 1 && threshold >= 1 && radius > 0 &&
                        radius < 2147483648.0f && strides && normal && width > 0 && height > 0 &&
                        fit != Fit::beyondAddresses;
  const auto blur = [&](uint8_t* image, uint8_t* work) {
    if (several) {
      KVL_BlurClassicUni_MultiComp(image, imageStride, work, workStride, width, height, threshold,
                                   radius, components, layout);
    } else {
      KVL_BlurClassicUni(image, imageStride, work, workStride, width, height, threshold, radius);
    }
  };
  const bool noImage = test.hostile() && test.oneIn(16), noWork = test.hostile() && test.oneIn(16);
  if (!accepted || noImage || noWork) {
    uint8_t* const image = noImage ? nullptr : test.untouchable();
    uint8_t* const work = noWork ? nullptr : test.untouchable();
    test.callInVain([&] { blur(image, work); });
    return;
  }
  const double cost = static_cast<double>(rowBytes) * height *
                      (threshold == 255 ? 8.0 : std::min<double>(2 * taps + 1, width + height));
  if (fit > Fit::apart || cost > 1e6) return;
  uint8_t* const image = test.rows(imageStride, bytes(rowBytes), height);
  uint8_t* const work = test.rows(workStride, bytes(columnBytes), width);
  test.call([&] { blur(image, work); });
}

// Filters from one image to another, whose common arguments are checked alike.
struct Images {
  uint32_t width;
  uint32_t height;
  int32_t components;
  int64_t rowBytes;
  uint32_t sourceStride;
  uint32_t destinationStride;
  Fit fit;
  bool accepted;

  Images(Case& test, bool large, int32_t onlyComponents) {
    width = static_cast<uint32_t>(test.side(large));
    height = static_cast<uint32_t>(test.side(large));
    components = onlyComponents != 0 ? onlyComponents : componentsFrom(test, true);
    const bool known = components == 1 || components == 3 || components == 4;
    rowBytes = int64_t{width} * (known ? components : 4);
    sourceStride = strideFrom(test, rowBytes);
    destinationStride = strideFrom(test, rowBytes);
    fit =
        std::max(fitOf(sourceStride, height, rowBytes), fitOf(destinationStride, height, rowBytes));
    constexpr uint32_t most = 1u << 20;
    accepted = known && width >= 1 && width <= most && height >= 1 && height <= most &&
               sourceStride >= rowBytes && destinationStride >= rowBytes &&
               fit != Fit::beyondAddresses;
  }
  double samples() const { return static_cast<double>(rowBytes) * height; }
};

using Filter = std::function<void(const uint8_t*, uint8_t*)>;

void callImages(Case& test, const Images& images, bool accepted, double cost,
                const Filter& filter) {
  const bool noSource = test.hostile() && test.oneIn(16);
  const bool noDestination = test.hostile() && test.oneIn(16);
  if (!images.accepted || !accepted || noSource || noDestination) {
    const uint8_t* const source = noSource ? nullptr : test.untouchable();
    uint8_t* const destination = noDestination ? nullptr : test.untouchable();
    test.callInVain([&] { filter(source, destination); });
    return;
  }
  if (images.fit > Fit::apart || cost > 1e6) return;
  const uint8_t* const source =
      test.readOnlyRows(images.sourceStride, bytes(images.rowBytes), images.height);
  uint8_t* const destination =
      test.rows(images.destinationStride, bytes(images.rowBytes), images.height);
  test.call([&] { filter(source, destination); });
}

void centreBlur(Case& test) {
  const bool radial = test.byte() % 2 == 0;
  const Images images(test, test.oneIn(8), 0);
  const bool outside = test.oneIn(8);
  const double reach = outside ? 1048576.0 : 40.0;
  const double x = test.number(outside ? -reach : 0, reach);
  const double y = test.number(outside ? -reach : 0, reach);
  const double amount = test.number(0, !radial ? 2.2 : test.oneIn(4) ? 400.0 : 20.0);
  const bool accepted =
      std::abs(x) <= 1048576.0 && std::abs(y) <= 1048576.0 && std::isfinite(amount) && amount >= 0;
  const double farthest = std::hypot(std::max(std::abs(x), std::abs(images.width - x)),
                                     std::max(std::abs(y), std::abs(images.height - y)));
  const double length = std::min(1024.0, 2 + farthest * (radial ? amount * 0.0175 : amount));
  callImages(test, images, accepted, images.samples() * length,
             [&](const uint8_t* source, uint8_t* destination) {
               (radial ? KVL_BlurRadial : KVL_BlurZoom)(
                   source, images.sourceStride, destination, images.destinationStride, images.width,
                   images.height, x, y, amount, images.components);
             });
}

void directionalBlur(Case& test) {
  const Images images(test, test.oneIn(8), 0);
  const double angle = test.number(-400, 400);
  const double length = test.number(0, test.oneIn(8) ? 1200 : 30);
  const bool accepted = std::isfinite(angle) && std::isfinite(length) && length >= 0;
  callImages(test, images, accepted, images.samples() * std::min(2048.0, 2 * length + 1),
             [&](const uint8_t* source, uint8_t* destination) {
               KVL_BlurDirectional(source, images.sourceStride, destination,
                                   images.destinationStride, images.width, images.height, angle,
                                   length, images.components);
             });
}

void sharpen(Case& test) {
  const bool several = test.byte() % 2 == 0;
  const Images images(test, true, several ? 0 : 1);
  const int32_t threshold = test.integer(0, 40);
  const float gain = test.single(0, 10);
  const int32_t layout = several ? test.integer(1, 1) : 1;
  callImages(test, images, threshold >= 0 && gain >= 0 && layout == 1, images.samples(),
             [&](const uint8_t* source, uint8_t* destination) {
               if (several) {
                 KVL_SharpenSimpleUni_MultiComp(
                     source, images.sourceStride, destination, images.destinationStride,
                     images.width, images.height, threshold, gain, images.components, layout);
               } else {
                 KVL_SharpenSimpleUni(source, images.sourceStride, destination,
                                      images.destinationStride, images.width, images.height,
                                      threshold, gain);
               }
             });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Case test(data, size);
  switch (test.byte() % 4) {
    case 0:
      classicBlur(test);
      break;
    case 1:
      centreBlur(test);
      break;
    case 2:
      directionalBlur(test);
      break;
    default:
      sharpen(test);
  }
  return 0;
}
