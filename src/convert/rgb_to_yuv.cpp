#include "convert/rgb_to_yuv.h"

namespace kvl {
namespace {

constexpr ColorConversionParams studioBlock(const double (&matrix)[9]) {
  ColorConversionParams block{};
  for (int i = 0; i < 9; ++i) {
    block.rgbToYuv[i] = matrix[i];
    block.rgbToYuvInt[i] = static_cast<int32_t>(256 * matrix[i] + 0.5);
    block.rgbToYuvShort[i] = static_cast<int16_t>(block.rgbToYuvInt[i]);
  }
  block.yOffset = 16;
  block.shift = 8;
  block.rounding = 128;
  return block;
}

}  // namespace

constexpr ColorConversionParams bt601Studio =
    studioBlock({0.257, 0.504, 0.098, -0.148, -0.291, 0.439, 0.439, -0.368, -0.071});
constexpr ColorConversionParams bt709Studio =
    studioBlock({0.183, 0.614, 0.062, -0.101, -0.338, 0.439, 0.439, -0.399, -0.040});

}  // namespace kvl
