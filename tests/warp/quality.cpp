// How far the warp of a picture lies from its definition without any rounding.
//
//   warp_quality in.ppm
//
// Prints the PSNR and the largest difference of a mild perspective that keeps the picture's size,
// once without and once with vector bodies, and fails where they are worse than the header tells.
#include <cmath>
#include <cstdio>
#include <fstream>
#include <string>

#include "kvl/kvl.h"
#include "support/test_image.h"
#include "warp/warp_host.h"
#include "warp/warp_model.h"

namespace {

// With less weight than one sample's at half a pixel's distance, a pixel is of the outermost rim.
constexpr uint32_t fullWeight = 192;
constexpr double publishedPsnr = 59, publishedDifference = 0.75, publishedRimDifference = 12;

kvl::test::Pixels readPicture(const char* path) {
  std::ifstream file(path, std::ios::binary);
  std::string kind;
  int width = 0, height = 0, highest = 0;
  file >> kind >> width >> height >> highest;
  file.get();
  if (!file || kind != "P6" || highest != 255 || width % 4 != 0) return {0, 0, 3};
  kvl::test::Pixels picture(width, height, 3);
  file.read(reinterpret_cast<char*>(picture.bytes.data()),
            static_cast<std::streamsize>(picture.bytes.size()));
  if (!file) return {0, 0, 3};
  return picture;
}

bool meetsPublished(const kvl::test::Pixels& picture, const char* what) {
  using namespace kvl::test;
  const double w = picture.width, h = picture.height;
  ModelCall call{};
  call.destinationRect.right = call.sourceRect.right = picture.width;
  call.destinationRect.bottom = call.sourceRect.bottom = picture.height;
  // The far edge recedes by a tenth; near the middle the size stays.
  call.matrix = {1, 0.02, 0, 0.1 / w, 0.03, 1, 0, 0.05 / h, 0, 0, 1, 0, 5.3, 4.7, 0, 1};

  Pixels drawn(picture.width, picture.height, 3);
  const ModelResult model = warpModel(drawn, picture, call);
  // Top-down rows without padding.
  const BITMAPINFOHEADER header = makeHeader(picture.width, -picture.height);
  WarpHost host;
  KVL_CalcQvWarpPixel(&header, drawn.bytes.data(), &call.destinationRect, &header,
                      picture.bytes.data(), &call.sourceRect, call.matrix.data(), &host, 0, 0);
  double squares = 0, largest = 0, largestAtRim = 0;
  for (size_t i = 0; i < drawn.bytes.size(); ++i) {
    const double difference = std::fabs(drawn.bytes[i] - model.exact[i]);
    squares += difference * difference;
    double& most = model.weights[i / 3] >= fullWeight ? largest : largestAtRim;
    most = std::fmax(most, difference);
  }
  const double mean = squares / static_cast<double>(drawn.bytes.size());
  const double psnr = 10 * std::log10(255 * 255 / mean);
  std::printf("%s: PSNR %.2f dB, largest difference %.3f, at the outermost rim %.3f\n", what, psnr,
              largest, largestAtRim);
  return psnr >= publishedPsnr && largest <= publishedDifference &&
         largestAtRim <= publishedRimDifference;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: warp_quality in.ppm\n");
    return 2;
  }
  const kvl::test::Pixels picture = readPicture(argv[1]);
  if (picture.width == 0) {
    std::fprintf(stderr, "warp_quality: %s is no 8-bit PPM of a width that 4 divides\n", argv[1]);
    return 2;
  }
  const bool before = meetsPublished(picture, "scalar");
  InitKVLWrapper();
  const bool after = meetsPublished(picture, "vector");
  return before && after ? 0 : 1;
}
