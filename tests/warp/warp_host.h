// A host's side of the warp for tests: an allocator whose images end at an unreadable page.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "kvl/kvl.h"
#include "support/guarded_memory.h"

namespace kvl::test {

class WarpHost : public KvlWarpHostAllocator {
 public:
  enum class Failure { none, status, statusWithImage, noImage, header, bits, shortRows, fewRows };

  explicit WarpHost(Failure failure = Failure::none, bool topDown = false, size_t misaligned = 0);

  int created = 0;
  int released = 0;
  KvlWarpImageRequest request{};
  int32_t flags = 0, line = 0;
  std::string file;
  // The height that the library wrote.
  int32_t heightAfter = 0;
  // The picture's rows from the first boundary of 16 bytes on, as they were at the release.
  std::vector<uint8_t> rows;

 private:
  struct Image : KvlWarpHostImage {
    WarpHost* host;
    BITMAPINFOHEADER header;
    std::unique_ptr<GuardedMemory> memory;
  };

  static int32_t createImage(KvlWarpHostAllocator* allocator, KvlWarpHostImage** image,
                             const KvlWarpImageRequest* request, int32_t flags, const char* file,
                             int32_t line);
  static uint32_t release(KvlWarpHostImage* image);
  static BITMAPINFOHEADER* getHeader(KvlWarpHostImage* image);
  static uint8_t* getBits(KvlWarpHostImage* image);

  Failure failure_;
  bool topDown_;
  size_t misaligned_;
  Image image_;
};

}  // namespace kvl::test
