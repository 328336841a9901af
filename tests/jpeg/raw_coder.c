#include "raw_coder.h"

#include <string.h>

static int32_t divide_up(int32_t value, int32_t by) {
  return (value + by - 1) / by;
}

static int32_t largest(const uint8_t* factors) {
  int32_t most = 1;
  int c;
  for (c = 0; c < 4; ++c) most = factors[c] > most ? factors[c] : most;
  return most;
}

int32_t raw_width(const KVL_JpegGeometry* geometry, int c) {
  return divide_up(geometry->width * geometry->horizontal[c], largest(geometry->horizontal) * 8) *
         8;
}

int32_t raw_height(const KVL_JpegGeometry* geometry, int c) {
  return divide_up(geometry->height, largest(geometry->vertical) * 8) * 8 * geometry->vertical[c];
}

size_t raw_offset(const KVL_JpegGeometry* geometry, int c) {
  size_t bytes = 0;
  while (c-- > 0) bytes += (size_t)raw_width(geometry, c) * (size_t)raw_height(geometry, c);
  return bytes;
}

static int32_t call_hook(RawCoder* coder, RawCall call, int32_t value) {
  return coder->hook ? coder->hook(coder, call, value) : 0;
}

static uint8_t* stored_row(const RawCoder* coder, int c, int32_t mcu_row, int32_t row) {
  const int32_t y = mcu_row * 8 * coder->geometry.vertical[c] + row;
  return coder->memory + raw_offset(&coder->geometry, c) +
         (size_t)y * (size_t)raw_width(&coder->geometry, c);
}

static int32_t open_encoder(void* user, const KVL_JpegGeometry* geometry) {
  RawCoder* coder = user;
  const int32_t status = call_hook(coder, raw_open, 0);
  if (status) return status;
  coder->geometry = *geometry;
  return raw_offset(geometry, geometry->componentCount) <= coder->size ? 0 : raw_too_small;
}

static int32_t write_rows(void* user, int32_t mcu_row, const uint8_t* const* const* rows) {
  RawCoder* coder = user;
  const int32_t status = call_hook(coder, raw_rows, mcu_row);
  int c, row;
  for (c = 0; !status && c < coder->geometry.componentCount; ++c) {
    for (row = 0; row < 8 * coder->geometry.vertical[c]; ++row) {
      memcpy(stored_row(coder, c, mcu_row, row), rows[c][row],
             (size_t)raw_width(&coder->geometry, c));
    }
  }
  return status;
}

static int32_t open_decoder(void* user, const uint8_t* data, size_t size, uint64_t memory_limit,
                            int32_t scan_limit) {
  RawCoder* coder = user;
  (void)data, (void)size;
  coder->memory_limit = memory_limit;
  coder->scan_limit = scan_limit;
  return call_hook(coder, raw_open, 0);
}

static int32_t read_header(void* user, KVL_JpegGeometry* geometry) {
  RawCoder* coder = user;
  *geometry = coder->geometry;
  return call_hook(coder, raw_header, 0);
}

/* Without memory, every sample is a pattern of its place. */
static int32_t read_rows(void* user, int32_t mcu_row, uint8_t* const* const* rows) {
  RawCoder* coder = user;
  const int32_t status = call_hook(coder, raw_rows, mcu_row);
  int c, row;
  for (c = 0; !status && c < coder->geometry.componentCount; ++c) {
    for (row = 0; row < 8 * coder->geometry.vertical[c]; ++row) {
      const size_t width = (size_t)raw_width(&coder->geometry, c);
      if (coder->memory) {
        memcpy(rows[c][row], stored_row(coder, c, mcu_row, row), width);
      } else {
        memset(rows[c][row], mcu_row * 31 + c * 7 + row, width);
      }
    }
  }
  return status;
}

static int32_t finish(void* user) {
  return call_hook(user, raw_finish, 0);
}

static void error(void* user, int32_t status) {
  call_hook(user, raw_error, status);
}

KVL_JpegEncoder raw_encoder(RawCoder* coder) {
  KVL_JpegEncoder encoder;
  encoder.size = sizeof encoder;
  encoder.user = coder;
  encoder.open = open_encoder;
  encoder.writeRows = write_rows;
  encoder.finish = finish;
  encoder.error = error;
  return encoder;
}

KVL_JpegDecoder raw_decoder(RawCoder* coder) {
  KVL_JpegDecoder decoder;
  decoder.size = sizeof decoder;
  decoder.user = coder;
  decoder.open = open_decoder;
  decoder.readHeader = read_header;
  decoder.readRows = read_rows;
  decoder.finish = finish;
  decoder.error = error;
  return decoder;
}
