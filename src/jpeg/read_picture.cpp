#include "jpeg/read_picture.h"

#include <algorithm>
#include <cstring>

#include "core/parallel.h"
#include "core/platform.h"
#include "jpeg/coder_call.h"
#include "jpeg/component_rows.h"
#include "jpeg/mcu_reader.h"

namespace kvl {
namespace {

constexpr int32_t maxThreads = 1024;
constexpr uint64_t usualMemoryLimit = uint64_t{1} << 29;
constexpr int32_t usualScanLimit = 100;
// Rows of pixels between two barriers, where there is a team, and of one item of work.
constexpr int32_t roundRows = 128;
constexpr int32_t itemRows = 16;

KVL_JpegReadOptions withDefaults(const KVL_JpegReadOptions* given) {
  KVL_JpegReadOptions options = {};
  if (given != nullptr) options = *given;
  if (options.memoryLimit == 0) options.memoryLimit = usualMemoryLimit;
  if (options.scanLimit == 0) options.scanLimit = usualScanLimit;
  return options;
}

// Decoding is one thread's work; converting keeps up with it on two.
int teamSize(int32_t asked) {
  constexpr int usefulThreads = 3;
  adoptTeamSize();
  return asked != 0 ? asked : std::min(omp_get_max_threads(), usefulThreads);
}

// Reads rows of MCUs in rounds: while one round is decoded, the one before is converted.
class RoundReader {
 public:
  RoundReader(const KVL_JpegDecoder& decoder, const McuReader& reader, const RECT& crop,
              const PixelTarget& target, int threads)
      : decoder_(decoder), reader_(reader), crop_(crop), target_(target), threads_(threads) {
    const JpegLayout& layout = reader.layout;
    mcuRowsPerRound_ = threads == 1 ? 1 : std::max(1, roundRows / layout.mcuHeight);
    needed_ = 1;
    while (reader.pixelRowsOf(needed_) < crop.bottom) ++needed_;
  }

  uint64_t bytes() const {
    return 2 * ComponentRows::bytes(reader_.layout, mcuRowsPerRound_) +
           static_cast<uint64_t>(threads_) * static_cast<uint64_t>(reader_.scratchBytes());
  }

  void place(uint8_t* memory) {
    for (ComponentRows& rows : rows_) {
      rows.place(reader_.layout, mcuRowsPerRound_, memory);
      memory += ComponentRows::bytes(reader_.layout, mcuRowsPerRound_);
    }
    scratch_ = memory;
  }

  int32_t run() {
    const int32_t rounds = (needed_ + mcuRowsPerRound_ - 1) / mcuRowsPerRound_;
    const int32_t status = parallelRounds(
        rounds, [&](int32_t round) { return readRound(round); },
        [&](int32_t round) { return round == 0 ? 0 : itemsOf(round - 1, endOf(round - 1)); },
        [&](int32_t round, int32_t item, int thread) {
          convertItem(round - 1, endOf(round - 1), item, thread);
        });
    // What the last round has read, whether it failed in the midst or not.
    if (read_ > lastRound_ * mcuRowsPerRound_) {
      parallelDynamic(itemsOf(lastRound_, read_), 1, [&](int32_t item, int thread) {
        convertItem(lastRound_, read_, item, thread);
      });
    }
    return status;
  }

  int32_t rowsDone() const {
    const int32_t end = read_ == 0 ? 0 : reader_.pixelRowsOf(read_);
    return std::clamp<int32_t>(end, crop_.top, crop_.bottom) - crop_.top;
  }

 private:
  int32_t readRound(int32_t round) {
    const ComponentRows& rows = rows_[round & 1];
    const int32_t first = round * mcuRowsPerRound_;
    const int32_t end = endOf(round);
    lastRound_ = round;
    if (round > 0) keepLastRow(rows_[~round & 1], rows);
    for (int32_t mcu = first; mcu < end; ++mcu) {
      const int32_t status = callCoder(
          [&] { return decoder_.readRows(decoder_.user, mcu, rows.ofMcuRow(mcu - first)); });
      if (status != KVL_JPEG_OK) return status;
      repeatEnds(rows, mcu - first);
      ++read_;
    }
    return KVL_JPEG_OK;
  }

  // Doubling a row of samples looks one beyond either end.
  void repeatEnds(const ComponentRows& rows, int32_t mcu) const {
    for (int c = 0; c < reader_.layout.componentCount; ++c) {
      const JpegComponent& component = reader_.layout.components[c];
      for (int32_t r = 0; r < component.rowsPerMcu; ++r) {
        uint8_t* row = rows.row(c, mcu * component.rowsPerMcu + r);
        row[-1] = row[0];
        row[component.width] = row[component.width - 1];
      }
    }
  }

  void keepLastRow(const ComponentRows& from, const ComponentRows& to) const {
    for (int c = 0; c < reader_.layout.componentCount; ++c) {
      const JpegComponent& component = reader_.layout.components[c];
      std::memcpy(to.row(c, -1) - 1, from.row(c, mcuRowsPerRound_ * component.rowsPerMcu - 1) - 1,
                  static_cast<size_t>(component.width) + 2);
    }
  }

  int32_t endOf(int32_t round) const { return std::min((round + 1) * mcuRowsPerRound_, needed_); }

  // The rows of pixels that become complete with a round that was read up to row `end` of the MCUs.
  RowRange pixelRows(int32_t round, int32_t end) const {
    return {std::max(reader_.pixelRowsOf(round * mcuRowsPerRound_), int32_t{crop_.top}),
            std::min(reader_.pixelRowsOf(end), int32_t{crop_.bottom})};
  }

  int32_t itemsOf(int32_t round, int32_t end) const {
    const RowRange rows = pixelRows(round, end);
    return rows.start < rows.end ? (rows.end - rows.start + itemRows - 1) / itemRows : 0;
  }

  void convertItem(int32_t round, int32_t end, int32_t item, int thread) const {
    const RowRange rows = pixelRows(round, end);
    const McuWindow window{&rows_[round & 1], round * mcuRowsPerRound_};
    const int32_t first = rows.start + item * itemRows;
    const int32_t last = std::min(first + itemRows, rows.end);
    uint8_t* scratch = scratch_ + thread * reader_.scratchBytes();
    for (int32_t y = first; y < last; ++y) {
      reader_.convertRow(y, window, target_.bits + (y - crop_.top) * target_.step, scratch);
    }
  }

  const KVL_JpegDecoder& decoder_;
  const McuReader& reader_;
  const RECT crop_;
  const PixelTarget target_;
  const int threads_;
  int32_t mcuRowsPerRound_;
  int32_t needed_;    // rows of MCUs
  int32_t read_ = 0;  // of them
  int32_t lastRound_ = 0;
  ComponentRows rows_[2];
  uint8_t* scratch_ = nullptr;
};

}  // namespace

bool isUsable(const JpegFile& file) {
  const KVL_JpegDecoder* decoder = file.decoder;
  if (decoder == nullptr || decoder->size < sizeof(KVL_JpegDecoder) || decoder->open == nullptr ||
      decoder->readHeader == nullptr || decoder->readRows == nullptr ||
      decoder->finish == nullptr) {
    return false;
  }
  if (file.data == nullptr && file.dataSize != 0) return false;
  const KVL_JpegReadOptions* options = file.options;
  if (options == nullptr) return true;
  return options->size >= sizeof(KVL_JpegReadOptions) && options->threads >= 0 &&
         options->threads <= maxThreads && options->scanLimit >= 0 && options->reserved == 0;
}

JpegPicture::JpegPicture(const JpegFile& file)
    : file_(file), options_(withDefaults(file.options)), team_(teamSize(options_.threads)) {}

int32_t JpegPicture::open() {
  const KVL_JpegDecoder& decoder = *file_.decoder;
  const int32_t status = callCoder([&] {
    return decoder.open(decoder.user, file_.data, file_.dataSize, options_.memoryLimit,
                        options_.scanLimit);
  });
  opened_ = status == KVL_JPEG_OK;
  return opened_ ? readHeader() : status;
}

int32_t JpegPicture::readHeader() {
  const KVL_JpegDecoder& decoder = *file_.decoder;
  KVL_JpegGeometry geometry = {};
  geometry.size = sizeof geometry;
  int32_t status = callCoder([&] { return decoder.readHeader(decoder.user, &geometry); });
  if (status != KVL_JPEG_OK) return status;
  status = layOutJpeg(geometry, layout_);
  if (status != KVL_JPEG_OK) return status;
  const uint64_t pixels =
      uint64_t{1} * static_cast<uint64_t>(layout_.width) * static_cast<uint64_t>(layout_.height);
  if (options_.pixelLimit != 0 && pixels > options_.pixelLimit) return KVL_JPEG_OVER_LIMIT;
  return cutCrop() ? KVL_JPEG_OK : KVL_JPEG_INVALID_ARGUMENT;
}

bool JpegPicture::cutCrop() {
  const RECT whole = {0, 0, layout_.width, layout_.height};
  const RECT& asked = options_.crop;
  if (asked.left == 0 && asked.top == 0 && asked.right == 0 && asked.bottom == 0) {
    crop_ = whole;
    return true;
  }
  return intersectRect(crop_, asked, whole);
}

int32_t JpegPicture::read(int32_t width, int32_t height, const PixelTarget& target, int32_t& rows) {
  const RECT crop = {crop_.left, crop_.top, crop_.left + width, crop_.top + height};
  const McuReader reader{layout_, crop.left, width, target.bitCount,
                         decodeRowKernels(instructionSet())};
  RoundReader rounds(*file_.decoder, reader, crop, target, omp_get_max_threads());
  if (rounds.bytes() > options_.memoryLimit) return KVL_JPEG_OVER_LIMIT;
  ScratchMemory memory;
  if (!memory.allocate(rounds.bytes())) return KVL_JPEG_OUT_OF_MEMORY;
  rounds.place(memory.data());
  const int32_t status = rounds.run();
  rows = rounds.rowsDone();
  return status;
}

int32_t JpegPicture::end(int32_t status) {
  return opened_ ? endPicture(*file_.decoder, status) : status;
}

}  // namespace kvl
