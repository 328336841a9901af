// The kernel tables of all families but two, whose names for what they weigh and count are taken.
#include <gtest/gtest.h>

#include "alpha/colour_key_kernels.h"
#include "alpha/colour_shift_kernels.h"
#include "alpha/premultiply_kernels.h"
#include "alpha/reverse_premultiply_kernels.h"
#include "convert/halving_kernels.h"
#include "convert/rgb_blocks.h"
#include "convert/yuv_to_rgb_kernels.h"
#include "correlation/block_measures.h"
#include "correlation/grey_kernels.h"
#include "correlation/product_kernels.h"
#include "filters/averaging_blur_kernels.h"
#include "filters/directional_blur_kernels.h"
#include "filters/gaussian_blur_kernels.h"
#include "filters/selective_mean.h"
#include "filters/selective_sharpen_kernels.h"
#include "filters/simple_sharpen_kernels.h"
#include "filters/transpose_rgb24.h"
#include "jpeg/decode_rows.h"
#include "jpeg/encode_rows.h"
#include "resize/row_interpolation.h"
#include "support/kernel_levels.h"
#include "warp/warp_kernels.h"

namespace kvl::test {
namespace {

TEST(KernelLevels, ReplaceWhatTheyClaim) {
  EXPECT_EQ(replaced(colourKeyKernels), (Replaced{0, 0, 0, 1}));
  EXPECT_EQ(replaced(colourShiftKernels), (Replaced{0, 1, 0, 1}));
  EXPECT_EQ(replaced(premultiplyKernels), (Replaced{0, 1, 0, 1}));
  EXPECT_EQ(replaced(reversePremultiplyKernels), (Replaced{0, 1, 0, 1}));
  EXPECT_EQ(replaced(halvingKernels), (Replaced{3, 6, 0, 6}));
  EXPECT_EQ(replaced(rgbBlocks), (Replaced{0, 8, 0, 8}));
  EXPECT_EQ(replaced(yuvToRgbKernels), (Replaced{0, 6, 0, 6}));
  EXPECT_EQ(replaced(blockMeasures), (Replaced{0, 3, 0, 3}));
  EXPECT_EQ(replaced(greyKernel), (Replaced{0, 1, 0, 1}));
  EXPECT_EQ(replaced(productKernel), (Replaced{0, 1, 0, 1}));
  EXPECT_EQ(replaced(averagingBlurKernels), (Replaced{0, 0, 0, 1}));
  EXPECT_EQ(replaced(directionalKernels), (Replaced{0, 0, 0, 3}));
  EXPECT_EQ(replaced(gaussianKernels), (Replaced{0, 2, 0, 2}));
  EXPECT_EQ(replaced(selectiveMeanKernels), (Replaced{0, 0, 0, 2}));
  EXPECT_EQ(replaced(sharpenKernels), (Replaced{0, 0, 0, 3}));
  EXPECT_EQ(replaced(sharpenSimpleKernels), (Replaced{0, 0, 0, 1}));
  EXPECT_EQ(replaced(transposeRgb24Kernel), (Replaced{0, 0, 0, 1}));
  EXPECT_EQ(replaced(decodeRowKernels), (Replaced{0, 0, 0, 5}));
  EXPECT_EQ(replaced(encodeRowKernels), (Replaced{0, 0, 0, 3}));
  EXPECT_EQ(replaced(rowInterpolationKernels), (Replaced{0, 0, 0, 1}));
  for (const int channels : {1, 3, 4}) {
    const auto kernels = [&](InstructionSet level) { return warpKernels(level, channels); };
    EXPECT_EQ(replaced(kernels), (Replaced{0, 1, 0, 2})) << channels;
  }
}

}  // namespace
}  // namespace kvl::test
