/* A coder without a file format: it stores raw component rows in memory and gives them back. */
#ifndef RAW_CODER_H
#define RAW_CODER_H

#include <kvl/kvl.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef enum { raw_open, raw_header, raw_rows, raw_finish, raw_error } RawCall;

typedef struct RawCoder RawCoder;

struct RawCoder {
  KVL_JpegGeometry geometry; /* taken from the library, or set for it to read */
  uint8_t* memory;           /* the components one after the other, rows without a gap */
  size_t size;               /* of the memory, in bytes */

  /* Called first in every function; what it returns, unless 0, the function returns. May be null. */
  int32_t (*hook)(RawCoder*, RawCall, int32_t mcu_row_or_status);
  void* context;

  uint64_t memory_limit; /* what open was told */
  int32_t scan_limit;
};

enum { raw_too_small = 77 };

KVL_JpegEncoder raw_encoder(RawCoder* coder);
KVL_JpegDecoder raw_decoder(RawCoder* coder);

/* Samples of a row of component c, and its rows, padding included. */
int32_t raw_width(const KVL_JpegGeometry* geometry, int c);
int32_t raw_height(const KVL_JpegGeometry* geometry, int c);
/* Bytes before component c; with c the number of components, those of all. */
size_t raw_offset(const KVL_JpegGeometry* geometry, int c);

#ifdef __cplusplus
}
#endif

#endif
