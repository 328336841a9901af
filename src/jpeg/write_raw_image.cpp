#include "jpeg/write_raw_image.h"

#include <algorithm>
#include <memory>
#include <new>

#include "core/bitmap.h"
#include "core/parallel.h"
#include "jpeg/bitmap_kind.h"
#include "jpeg/coder_call.h"
#include "jpeg/component_rows.h"
#include "jpeg/mcu_writer.h"

namespace kvl {
namespace {

// Rows of pixels in a band where the caller leaves it to the library: enough to make a barrier
// cheap, few enough to stay in the cache. One thread has no barriers to save.
constexpr int32_t usualBandRows = 64;
constexpr int32_t bandRowsAlone = 1;

struct SampleMap {
  uint8_t luma[256];
  uint8_t chroma[256];
};

constexpr SampleMap makeSampleMap(bool videoRange) {
  SampleMap map{};
  const auto toByte = [](int doubled, int span) {
    const int rounded = doubled < 0 ? -1 : doubled / span;
    return static_cast<uint8_t>(rounded < 0 ? 0 : rounded > 255 ? 255 : rounded);
  };
  for (int i = 0; i < 256; ++i) {
    map.luma[i] = videoRange ? toByte((i - 16) * 510 + 219, 438) : static_cast<uint8_t>(i);
    map.chroma[i] = videoRange ? toByte(i * 510 - 7712, 448) : static_cast<uint8_t>(i);
  }
  return map;
}

constexpr SampleMap fullRangeMap = makeSampleMap(false);
constexpr SampleMap videoRangeMap = makeSampleMap(true);

KVL_JpegGeometry geometryOf(int32_t width, int32_t height, BitmapKind kind, int32_t sampling) {
  KVL_JpegGeometry geometry = {};
  geometry.size = sizeof geometry;
  geometry.width = width;
  geometry.height = height;
  geometry.colorSpace = kind == BitmapKind::grey ? KVL_JPEG_GREY : KVL_JPEG_YCBCR;
  geometry.componentCount = kind == BitmapKind::grey ? 1 : 3;
  for (int c = 0; c < geometry.componentCount; ++c) {
    geometry.horizontal[c] = geometry.vertical[c] = 1;
  }
  if (kind != BitmapKind::grey) {
    if (sampling != KVL_JPEG_444) geometry.horizontal[0] = 2;
    if (sampling == KVL_JPEG_420) geometry.vertical[0] = 2;
  }
  return geometry;
}

// Whether the bitmap is one that can be written; fills what is read of it.
bool describeBitmap(const BITMAPINFOHEADER& header, const uint8_t* bits,
                    const JpegWriteOptions& options, KVL_JpegGeometry& geometry,
                    McuWriter& writer) {
  const BitmapKind kind = jpegBitmapKind(header, writer.packed);
  if (kind == BitmapKind::none) return false;
  const int64_t rows = header.biHeight < 0 ? -int64_t{header.biHeight} : header.biHeight;
  if (header.biWidth < 1 || header.biWidth > jpegMaxSide || rows < 1 || rows > jpegMaxSide) {
    return false;
  }
  const auto stride = static_cast<int64_t>(CalcDibStride(&header));
  if (!isAddressable(bits, stride, rows)) return false;
  geometry = geometryOf(header.biWidth, static_cast<int32_t>(rows), kind, options.sampling);
  const bool bottomUp = kind != BitmapKind::packed && header.biHeight > 0;
  writer.top = bottomUp ? bits + (rows - 1) * stride : bits;
  writer.step = bottomUp ? -stride : stride;
  writer.bitCount = header.biBitCount;
  const SampleMap& map = options.videoRange != 0 ? videoRangeMap : fullRangeMap;
  writer.lumaOfByte = map.luma;
  writer.chromaOfByte = map.chroma;
  writer.kernels = encodeRowKernels(instructionSet());
  return layOutJpeg(geometry, writer.layout) == KVL_JPEG_OK;
}

bool isUsable(const KVL_JpegEncoder* encoder) {
  return encoder != nullptr && encoder->size >= sizeof(KVL_JpegEncoder) &&
         encoder->open != nullptr && encoder->writeRows != nullptr && encoder->finish != nullptr;
}

bool isUsable(const JpegWriteOptions& options) {
  return options.sampling >= KVL_JPEG_444 && options.sampling <= KVL_JPEG_420 &&
         (options.videoRange == 0 || options.videoRange == 1) && options.bandRows >= 0;
}

// The bands of a picture, and the memory in which the latest of them lie.
class Bands {
 public:
  Bands(const McuWriter& writer, int32_t bandRows, int threads) : writer_(writer) {
    const JpegLayout& layout = writer.layout;
    const int32_t usual = threads == 1 ? bandRowsAlone : usualBandRows;
    const int32_t rows = std::clamp(bandRows == 0 ? usual : bandRows, 1, layout.height);
    mcuRowsPerBand_ = (rows + layout.mcuHeight - 1) / layout.mcuHeight;
    count_ = (layout.mcuRows + mcuRowsPerBand_ - 1) / mcuRowsPerBand_;
    perRound_ = std::min(threads, count_);
    // While those of one round are handed to the coder, those of the next are made.
    kept_ = std::min(2 * perRound_, count_);
    threads_ = threads;
  }

  bool allocate() {
    const uint64_t bandBytes = ComponentRows::bytes(writer_.layout, mcuRowsPerBand_);
    const auto scratchBytes = static_cast<uint64_t>(writer_.scratchBytes());
    rows_.reset(new (std::nothrow) ComponentRows[static_cast<size_t>(kept_)]);
    if (rows_ == nullptr || !memory_.allocate(bandBytes * static_cast<uint64_t>(kept_) +
                                              scratchBytes * static_cast<uint64_t>(threads_))) {
      return false;
    }
    uint8_t* at = memory_.data();
    for (int32_t i = 0; i < kept_; ++i, at += bandBytes) {
      rows_[static_cast<size_t>(i)].place(writer_.layout, mcuRowsPerBand_, at);
    }
    scratch_ = at;
    return true;
  }

  int32_t rounds() const { return (count_ + perRound_ - 1) / perRound_; }
  int32_t firstOfRound(int32_t round) const { return std::min(round * perRound_, count_); }

  void convert(int32_t band, int thread) const {
    const RowRange range = mcuRows(band);
    uint8_t* scratch = scratch_ + thread * writer_.scratchBytes();
    for (int32_t mcu = range.start; mcu < range.end; ++mcu) {
      writer_.write(mcu, rowsOf(band), mcu - range.start, scratch);
    }
  }

  RowRange mcuRows(int32_t band) const {
    const int32_t start = band * mcuRowsPerBand_;
    return {start, std::min(start + mcuRowsPerBand_, writer_.layout.mcuRows)};
  }

  uint8_t* const* const* rowsForCoder(int32_t band, int32_t mcuRow) const {
    return rowsOf(band).ofMcuRow(mcuRow - mcuRows(band).start);
  }

 private:
  const ComponentRows& rowsOf(int32_t band) const {
    return rows_[static_cast<size_t>(band % kept_)];
  }

  const McuWriter& writer_;
  int32_t mcuRowsPerBand_;
  int32_t count_;
  int32_t perRound_;
  int32_t kept_;
  int threads_;
  std::unique_ptr<ComponentRows[]> rows_;
  ScratchMemory memory_;
  uint8_t* scratch_ = nullptr;
};

// Hands every row of MCUs to the coder; `taken` counts those that it took.
int32_t writeBands(const KVL_JpegEncoder& encoder, const Bands& bands, int32_t& taken) {
  const auto handOver = [&](int32_t round) {
    int32_t status = KVL_JPEG_OK;
    const int32_t end = bands.firstOfRound(round);
    for (int32_t band = bands.firstOfRound(round - 1); band < end; ++band) {
      const RowRange range = bands.mcuRows(band);
      for (int32_t mcu = range.start; mcu < range.end; ++mcu) {
        status = callCoder(
            [&] { return encoder.writeRows(encoder.user, mcu, bands.rowsForCoder(band, mcu)); });
        if (status != KVL_JPEG_OK) return status;
        ++taken;
      }
    }
    return status;
  };
  return parallelRounds(
      bands.rounds() + 1, [&](int32_t round) { return round == 0 ? KVL_JPEG_OK : handOver(round); },
      [&](int32_t round) { return bands.firstOfRound(round + 1) - bands.firstOfRound(round); },
      [&](int32_t round, int32_t item, int thread) {
        bands.convert(bands.firstOfRound(round) + item, thread);
      });
}

}  // namespace

int32_t jpegWriteRawImage(const KVL_JpegEncoder* encoder, const BITMAPINFOHEADER* header,
                          const uint8_t* bits, const JpegWriteOptions& options,
                          int32_t* rowsWritten) {
  if (rowsWritten != nullptr) *rowsWritten = 0;
  if (!isUsable(encoder) || header == nullptr || bits == nullptr || !isUsable(options)) {
    return KVL_JPEG_INVALID_ARGUMENT;
  }
  KVL_JpegGeometry geometry;
  McuWriter writer = {};
  if (!describeBitmap(*header, bits, options, geometry, writer)) return KVL_JPEG_INVALID_ARGUMENT;

  adoptTeamSize();
  Bands bands(writer, options.bandRows, omp_get_max_threads());
  if (!bands.allocate()) return KVL_JPEG_OUT_OF_MEMORY;

  int32_t status = callCoder([&] { return encoder->open(encoder->user, &geometry); });
  if (status != KVL_JPEG_OK) return status;
  int32_t taken = 0;
  status = endPicture(*encoder, writeBands(*encoder, bands, taken));
  if (rowsWritten != nullptr) {
    *rowsWritten = std::min(taken * writer.layout.mcuHeight, writer.layout.height);
  }
  return status;
}

}  // namespace kvl
