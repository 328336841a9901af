#include "support/two_images.h"

#include <gtest/gtest.h>

#include <cstring>

namespace kvl::test {
namespace {

TestImage imageOf(const Shape& shape, GuardAt guard) {
  return {shape.width, shape.height, shape.bitCount, guard, shape.stride};
}

}  // namespace

Check twoImageCheck(const Shape& a, const Shape& b, uint64_t seed, const std::string& what,
                    const TwoImageModel& model, const TwoImageCall& call) {
  const GuardAt guard = guardOf(seed);
  const Bytes beforeA = imageOf(a, guard).fillRandom(seed).bytes();
  const Bytes beforeB = imageOf(b, guard).fillRandom(seed + 1000).bytes();
  Bytes expectedA = beforeA, expectedB = beforeB;
  model(expectedA, expectedB);
  return [=] {
    TestImage imageA = imageOf(a, guard), imageB = imageOf(b, guard);
    imageA.assign(beforeA);
    imageB.assign(beforeB);
    const BITMAPINFOHEADER headers[] = {imageA.header, imageB.header};
    call(imageA, imageB);
    expectBytes(expectedA, imageA, what + ", first image");
    expectBytes(expectedB, imageB, what + ", second image");
    EXPECT_EQ(std::memcmp(&headers[0], &imageA.header, sizeof headers[0]), 0) << what;
    EXPECT_EQ(std::memcmp(&headers[1], &imageB.header, sizeof headers[1]), 0) << what;
  };
}

}  // namespace kvl::test
