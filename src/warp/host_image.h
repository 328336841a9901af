// The temporary image that the host supplies for a subdivided source.
#pragma once

#include <cstdint>

#include "kvl/kvl.h"
#include "warp/picture_rows.h"

namespace kvl {

// Holds the host's object, if there is one, and releases it.
class HostImage {
 public:
  HostImage(KvlWarpHostAllocator* allocator, int32_t bytesPerPixel, int32_t width, int32_t height,
            int32_t threads);
  ~HostImage();
  HostImage(const HostImage&) = delete;
  HostImage& operator=(const HostImage&) = delete;

  // False where the host gave no image, or one whose rows cannot hold what was asked for.
  bool usable() const { return rows_.bits != nullptr; }
  const PictureRows& rows() const { return rows_; }

 private:
  KvlWarpHostImage* image_ = nullptr;
  PictureRows rows_;
};

}  // namespace kvl
