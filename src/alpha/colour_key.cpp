#include "alpha/colour_key.h"

#include <algorithm>

#include "alpha/colour_key_kernels.h"
#include "alpha/rows.h"
#include "alpha/wrapping.h"

namespace kvl {
namespace {

constexpr int32_t bytesPerPixel = 3;

struct Hsl {
  int32_t hue;
  int32_t saturation;
  int32_t lightness;
};

int32_t saturationOf(int32_t spread, int32_t sum) {
  if (spread == 0) return 0;
  return spread * 255 / (sum >> 1 <= 128 ? sum : 510 - sum);
}

Hsl toHsl(const uint8_t* pixel) {
  const int32_t blue = pixel[0], green = pixel[1], red = pixel[2];
  const int32_t highest = std::max({red, green, blue});
  const int32_t lowest = std::min({red, green, blue});
  const int32_t sum = highest + lowest;
  return {hueOf(red, green, blue), saturationOf(highest - lowest, sum), sum >> 1};
}

// A channel rises from p to q in the 60 degrees before its plateau and falls in those after it.
uint8_t hueToChannel(int32_t p, int32_t q, int32_t hue) {
  if (hue > hues) hue -= hues;
  if (hue < 0) hue += hues;
  int32_t channel = p;
  if (hue < 60) {
    channel = p + (q - p) * hue / 60;
  } else if (hue < 180) {
    channel = q;
  } else if (hue < 240) {
    channel = p + (q - p) * (240 - hue) / 60;
  }
  return static_cast<uint8_t>(std::clamp(channel, 0, 255));
}

void fromHsl(const Hsl& colour, uint8_t* pixel) {
  const auto [h, s, l] = colour;
  if (s <= 0) {
    std::fill_n(pixel, bytesPerPixel, static_cast<uint8_t>(l));
    return;
  }
  const int32_t q = l > 128 ? s + l - s * l / 255 : (s + 255) * l / 255;
  const int32_t p = 2 * l - q;
  pixel[0] = hueToChannel(p, q, h - 120);
  pixel[1] = hueToChannel(p, q, h);
  pixel[2] = hueToChannel(p, q, h + 120);
}

void suppressSpill(uint8_t* pixel, const HueSpillTable& table) {
  Hsl colour = toHsl(pixel);
  const int32_t factor = table.factors[colour.hue];
  if (factor >= keepSaturation) return;
  colour.saturation = (factor * colour.saturation) >> spillFactorBits;
  fromHsl(colour, pixel);
}

int32_t squaredDistance(const KeyColour& key, const uint8_t* pixel) {
  const auto square = [](int32_t a, int32_t b) {
    const int32_t difference = wrap(int64_t{a} - b);
    return int64_t{wrappingProduct(difference, difference)};
  };
  return wrap(square(key.blue, pixel[0]) + square(key.red, pixel[2]) + square(key.green, pixel[1]));
}

int32_t alphaOf(const ColourKey& key, int32_t distance) {
  if (distance <= key.low) return 0;
  if (distance >= key.high) return 255;
  const int32_t above = wrap((int64_t{distance} - key.low) * 255);
  return wrappingQuotient(above, wrap(int64_t{key.high} - key.low));
}

void keyRow(uint8_t* mask, uint8_t* pixels, int32_t count, const ColourKey& key) {
  for (int32_t x = 0; x < count; ++x, pixels += bytesPerPixel) {
    const int32_t alpha = alphaOf(key, squaredDistance(key.key, pixels));
    mask[x] = static_cast<uint8_t>(alpha);
    if (alpha > 0) suppressSpill(pixels, key.spill);
  }
}

// 100 per cent is the distance of 255 in all three components.
int32_t squaredTolerance(int32_t percent) {
  const double squared = wrappingProduct(percent, percent);
  return truncateToInt(squared * 0.0001 * 3.0 * 255.0 * 255.0 + 0.5);
}

}  // namespace

ColourKey makeColourKey(KeyColour key, KeyTolerances tolerances, int32_t spillStrength) {
  const auto isByte = [](int32_t value) { return value >= 0 && value <= 255; };
  const int32_t hue = hueOf(key.red, key.green, key.blue);
  ColourKey plan{key,
                 squaredTolerance(tolerances.low),
                 squaredTolerance(tolerances.high),
                 hueSpillTable(hue, spillStrength),
                 false,
                 {}};
  plan.isPlain = isByte(key.red) && isByte(key.green) && isByte(key.blue) && plan.low >= 0 &&
                 plan.high >= 0 && makeSpillRamp(plan.spill, hue, plan.ramp);
  return plan;
}

ColourKeyKernels colourKeyKernels(InstructionSet level) {
  ColourKeyKernels kernels{keyRow};
  if (level >= InstructionSet::avx2) addColourKeyAvx2(kernels);
  return kernels;
}

void colourKey(const KeyedImage& image, KeyColour key, KeyTolerances tolerances,
               int32_t spillStrength) {
  if (image.mask == nullptr || image.image == nullptr || image.width <= 0 || image.height <= 0) {
    return;
  }
  const int64_t rowBytes = int64_t{image.width} * bytesPerPixel;
  if (!rowsAreAddressable(image.image, image.imageStride, rowBytes, image.height) ||
      !rowsAreAddressable(image.mask, image.maskStride, image.width, image.height)) {
    return;
  }
  const ColourKey plan = makeColourKey(key, tolerances, spillStrength);
  const auto keyRowOf =
      colourKeyKernels(plan.isPlain ? instructionSet() : InstructionSet::scalar).row;
  const auto body = [&](int32_t y, int) {
    keyRowOf(image.mask + y * image.maskStride, image.image + y * image.imageStride, image.width,
             plan);
  };
  if (rowsAreApart(image.imageStride, rowBytes) && rowsAreApart(image.maskStride, image.width)) {
    parallelDynamic(image.height, 1, body);
  } else {
    for (int32_t y = 0; y < image.height; ++y) body(y, 0);
  }
}

}  // namespace kvl
