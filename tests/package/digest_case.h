/* What digest_host runs: one table of cases a family of exports. */
#ifndef DIGEST_CASE_H
#define DIGEST_CASE_H

#include <kvl/kvl.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>

typedef void (*Function)(void);

typedef struct {
  BITMAPINFOHEADER header;
  size_t size;
  uint8_t* bits;
} Picture;

/* What a case works on: the picture, which stays as it is, a buffer for its result that starts as a
   copy of the picture, and a zeroed one of twice the size for scratch. The digest covers both. */
typedef struct {
  const Picture* picture;
  uint8_t* result;
  uint8_t* work;
} Frame;

typedef struct {
  const char* export_name;
  void (*run)(Function, const Frame*, double);
  double parameter;
  int two_results; /* whether the results before and after InitKVLWrapper may differ */
} DigestCase;

/* Declares the exported function as it stands in the header, under the name `call`. */
#define EXPORT(name)      \
  __typeof__(&name) call; \
  memcpy(&call, &function, sizeof call)

static inline uint32_t stride(const Picture* picture) {
  return (uint32_t)(picture->header.biWidth * 3 + 3) & ~3u;
}

/* Each table ends with a case without a name. */
extern const DigestCase alpha_cases[];
extern const DigestCase convert_cases[];
extern const DigestCase correlation_cases[];
extern const DigestCase filter_cases[];
extern const DigestCase halving_cases[];
extern const DigestCase jpeg_cases[];
extern const DigestCase resize_cases[];
extern const DigestCase warp_cases[];

#endif
