#include "jpeg/mcu_writer.h"

#include <algorithm>
#include <cstring>

namespace kvl {
namespace {

// The chroma rows of one or two rows of pixels before they are sampled: at the width of the pixels,
// or of packed 4:2:2 at half of it.
struct ChromaScratch {
  uint8_t* rows;
  ptrdiff_t stride;

  uint8_t* row(int component, int line) const {
    return rows + rowMargin + (ptrdiff_t{2} * line + component) * stride;
  }
};

struct ChromaRows {
  uint8_t* cb;
  uint8_t* cr;
};

ptrdiff_t chromaStride(const JpegLayout& layout) {
  return marginedStride(layout.width + 2 * jpegBlock);
}

void extend(uint8_t* row, int32_t from, int32_t to) {
  if (from < to) std::memset(row + from, row[from - 1], static_cast<size_t>(to - from));
}

// One row of pixels as luma and unsampled chroma.
void convertRow(const McuWriter& writer, int32_t y, uint8_t* luma, uint8_t* cb, uint8_t* cr) {
  const uint8_t* in = writer.top + y * writer.step;
  const int32_t width = writer.layout.width;
  if (writer.bitCount == 24) {
    writer.kernels.colours(in, width, luma, cb, cr);
    return;
  }
  const PackedOrder order = writer.packed;
  for (ptrdiff_t i = 0; i < (width + 1) / 2; ++i, in += 4) {
    // The second luma of an odd width lies in the padding, which is filled afterwards.
    luma[2 * i] = writer.lumaOfByte[in[order.y0]];
    luma[2 * i + 1] = writer.lumaOfByte[in[order.y1]];
    cb[i] = writer.chromaOfByte[in[order.u]];
    cr[i] = writer.chromaOfByte[in[order.v]];
  }
}

// A row of chroma samples out of those of its pixels' rows, of which 4:2:0 has two.
void sampleBgr(const McuWriter& writer, const JpegComponent& component, uint8_t* first,
               uint8_t* second, uint8_t* out) {
  const int32_t width = writer.layout.width;
  const int32_t samples = component.paddedWidth;
  if (writer.layout.horizontalMax == 1) {
    extend(out, width, samples);
    return;
  }
  extend(first, width, 2 * samples);
  if (writer.layout.verticalMax == 1) {
    writer.kernels.halve(first, out, samples);
    return;
  }
  extend(second, width, 2 * samples);
  writer.kernels.quarter(first, second, out, samples);
}

void samplePacked(const McuWriter& writer, const JpegComponent& component, uint8_t* first,
                  uint8_t* second, uint8_t* out) {
  const int32_t samples = component.paddedWidth;
  if (writer.layout.horizontalMax == 1) {
    for (int32_t x = 0; x < component.width; ++x) out[x] = first[x / 2];
    extend(out, component.width, samples);
    return;
  }
  extend(first, component.width, samples);
  if (writer.layout.verticalMax == 1) {
    std::memcpy(out, first, static_cast<size_t>(samples));
    return;
  }
  extend(second, component.width, samples);
  for (int32_t i = 0; i < samples; ++i) {
    out[i] = static_cast<uint8_t>((first[i] + second[i] + (i & 1)) >> 1);
  }
}

void repeatRowAbove(const ComponentRows& rows, int c, int32_t r, const JpegComponent& component) {
  std::memcpy(rows.row(c, r), rows.row(c, r - 1), static_cast<size_t>(component.paddedWidth));
}

void writeGrey(const McuWriter& writer, int32_t mcuRow, const ComponentRows& rows, int32_t at) {
  const JpegComponent& component = writer.layout.components[0];
  for (int32_t r = 0; r < jpegBlock; ++r) {
    const int32_t y = mcuRow * jpegBlock + r;
    if (y >= writer.layout.height) {
      repeatRowAbove(rows, 0, at * jpegBlock + r, component);
      continue;
    }
    uint8_t* out = rows.row(0, at * jpegBlock + r);
    std::memcpy(out, writer.top + y * writer.step, static_cast<size_t>(component.width));
    extend(out, component.width, component.paddedWidth);
  }
}

// The rows of pixels, one or two, of chroma row `r` of the MCUs.
void writeColour(const McuWriter& writer, int32_t mcuRow, int32_t r, const ComponentRows& rows,
                 int32_t at, const ChromaScratch& scratch) {
  const JpegLayout& layout = writer.layout;
  const JpegComponent& luma = layout.components[0];
  const int lines = luma.vertical;
  const int32_t first = (mcuRow * jpegBlock + r) * lines;
  const int32_t chromaRow = at * jpegBlock + r;
  const int32_t lumaRow = chromaRow * lines;
  if (first >= layout.height) {
    for (int line = 0; line < lines; ++line) repeatRowAbove(rows, 0, lumaRow + line, luma);
    for (int c = 1; c < 3; ++c) repeatRowAbove(rows, c, chromaRow, layout.components[c]);
    return;
  }
  // Chroma that is not sampled needs no row in between.
  const bool direct = writer.bitCount == 24 && layout.horizontalMax == 1;
  const auto convert = [&](int line) {
    ChromaRows chroma{scratch.row(0, line), scratch.row(1, line)};
    if (direct) chroma = {rows.row(1, chromaRow), rows.row(2, chromaRow)};
    uint8_t* out = rows.row(0, lumaRow + line);
    convertRow(writer, first + line, out, chroma.cb, chroma.cr);
    extend(out, luma.width, luma.paddedWidth);
    return chroma;
  };
  const ChromaRows upper = convert(0);
  ChromaRows lower = upper;
  if (lines == 2 && first + 1 < layout.height) {
    lower = convert(1);
  } else if (lines == 2) {
    repeatRowAbove(rows, 0, lumaRow + 1, luma);
  }
  const auto sample = writer.bitCount == 24 ? sampleBgr : samplePacked;
  sample(writer, layout.components[1], upper.cb, lower.cb, rows.row(1, chromaRow));
  sample(writer, layout.components[2], upper.cr, lower.cr, rows.row(2, chromaRow));
}

}  // namespace

ptrdiff_t McuWriter::scratchBytes() const {
  return 4 * chromaStride(layout);
}

void McuWriter::write(int32_t mcuRow, const ComponentRows& rows, int32_t at,
                      uint8_t* scratch) const {
  if (bitCount == 8) {
    writeGrey(*this, mcuRow, rows, at);
    return;
  }
  const ChromaScratch chroma{scratch, chromaStride(layout)};
  for (int32_t r = 0; r < jpegBlock; ++r) writeColour(*this, mcuRow, r, rows, at, chroma);
}

}  // namespace kvl
