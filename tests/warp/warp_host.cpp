#include <string>
#include <vector>

#include "warp/warp_host.h"

#include "support/test_image.h"

namespace kvl::test {

WarpHost::WarpHost(Failure failure, bool topDown, size_t misaligned)
    : failure_(failure), topDown_(topDown), misaligned_(misaligned) {
  static const KvlWarpHostAllocatorOperations table = {nullptr, nullptr, nullptr, createImage};
  operations = &table;
}

int32_t WarpHost::createImage(KvlWarpHostAllocator* allocator, KvlWarpHostImage** image,
                              const KvlWarpImageRequest* request, int32_t flags, const char* file,
                              int32_t line) {
  static const KvlWarpHostImageOperations table = {nullptr, nullptr, release, getHeader, getBits};
  auto* host = static_cast<WarpHost*>(allocator);
  host->request = *request;
  host->flags = flags;
  host->file = file;
  host->line = line;
  const int32_t failed = static_cast<int32_t>(0x8007000E);
  if (host->failure_ == Failure::status) return failed;
  if (host->failure_ == Failure::noImage) return 0;

  const uint32_t subtype = request->subtype.Data1;
  const uint16_t bits = subtype == 0xE436EB7A ? 8 : subtype == 0xE436EB7D ? 24 : 32;
  Image& own = host->image_;
  own.operations = &table;
  own.host = host;
  own.header = makeHeader(request->width - (host->failure_ == Failure::shortRows ? 4 : 0),
                          host->topDown_ ? -request->height : request->height, bits);
  if (host->failure_ == Failure::fewRows) own.header.biHeight = 1;
  const size_t stride = (static_cast<size_t>(request->width) * bits + 31) / 32 * 4;
  own.memory = std::make_unique<GuardedMemory>(stride * static_cast<size_t>(request->height) +
                                               host->misaligned_);
  *image = &own;
  if (host->failure_ == Failure::statusWithImage) return failed;
  ++host->created;
  return 0;
}

uint32_t WarpHost::release(KvlWarpHostImage* image) {
  auto* own = static_cast<Image*>(image);
  WarpHost& host = *own->host;
  ++host.released;
  host.heightAfter = own->header.biHeight;
  const auto past = reinterpret_cast<uintptr_t>(own->memory->data()) & 15;
  const uint8_t* first = own->memory->data() + (past != 0 ? 16 - past : 0);
  if (first <= own->memory->data() + own->memory->size()) {
    host.rows.assign(first, static_cast<const uint8_t*>(own->memory->data()) + own->memory->size());
  }
  own->memory.reset();
  return 0;
}

BITMAPINFOHEADER* WarpHost::getHeader(KvlWarpHostImage* image) {
  auto* own = static_cast<Image*>(image);
  return own->host->failure_ == Failure::header ? nullptr : &own->header;
}

uint8_t* WarpHost::getBits(KvlWarpHostImage* image) {
  auto* own = static_cast<Image*>(image);
  return own->host->failure_ == Failure::bits ? nullptr : own->memory->data();
}

}  // namespace kvl::test
