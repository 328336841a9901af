/* One table of calls that between them reach every family, for hosts that make many of them at
   once: what a call gives is known, so that a race shows as a wrong result too. */
#ifndef MIXED_CALLS_H
#define MIXED_CALLS_H

#include <stddef.h>
#include <stdint.h>

#include "library.h"

#ifdef __cplusplus
extern "C" {
#endif

/* What one call at a time works on: a 24-bit picture that stays as it is, a copy of it that takes
   the result, and scratch of four times the size. */
typedef struct {
  BITMAPINFOHEADER header;
  uint32_t stride;
  size_t size;
  const uint8_t* picture;
  uint8_t* result;
  uint8_t* work;
} Frame;

/* Blocks of colour under noise. 0 without memory. */
int make_frame(Frame* frame, int32_t width, int32_t height);
void free_frame(Frame* frame);

extern const int mixed_call_count;
const char* mixed_call_name(int index);
/* Runs call `index` on the frame, and returns a digest of what it wrote. */
uint64_t mixed_call(const Library* library, int index, Frame* frame);

#ifdef __cplusplus
}
#endif

#endif
