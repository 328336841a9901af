// A peer: libswscale, with a context a band of the image, so that each thread can have one.
#pragma once

#ifdef KVL_BENCH_SWSCALE

extern "C" {
#include <libswscale/swscale.h>
}

#include <array>
#include <cstdint>
#include <functional>
#include <string>

namespace kvl::bench {

// The planes of an image from a row on, for libswscale.
struct SwsImage {
  std::array<uint8_t*, 4> planes;
  std::array<int, 4> strides;
};

struct SwsJob {
  AVPixelFormat from;
  int fromWidth, fromHeight;
  AVPixelFormat to;
  int toWidth, toHeight;
  int flags;
  std::function<SwsImage(int firstRow)> source, destination;
};

// Registers the job under job/variant/swscale. Heights are multiples of 8.
void addSwscale(const std::string& job, const std::string& variant, const SwsJob& sws);

}  // namespace kvl::bench

#endif
