/*
 * A JPEG coder for kvl over libjpeg's raw-data interface; any libjpeg of version 6b or later that
 * has jpeg_mem_src (libjpeg-turbo, libjpeg 8). Hosts may take it as it is.
 *
 *   LibjpegEncoder encoder;
 *   libjpeg_encoder_init(&encoder, 90);
 *   status = KVL_JpegWriteRawImage(&encoder.table, &header, bits, KVL_JPEG_420, 0, 0, NULL);
 *   ... encoder.bytes, encoder.size; encoder.message where status is not 0 ...
 *   libjpeg_encoder_free(&encoder);
 */
#ifndef LIBJPEG_CODER_H
#define LIBJPEG_CODER_H

#include <kvl/kvl.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* What the coders' functions return beside 0. */
enum {
  LIBJPEG_DAMAGED = 2,     /* not a JPEG file, cut short or damaged */
  LIBJPEG_UNSUPPORTED = 3, /* a kind that libjpeg does not decode */
  LIBJPEG_NO_MEMORY = 4,   /* memory is short, or the limit too low for the picture */
  LIBJPEG_SCANS = 5,       /* more scans than the limit allows */
  LIBJPEG_OTHER = 6
};

enum { LIBJPEG_MESSAGE_SIZE = 200 };

typedef struct {
  KVL_JpegEncoder table;
  void* state;
  int quality;          /* 1 .. 100 */
  int progressive;      /* set after the initialisation, where wanted */
  unsigned char* bytes; /* the file, once the call has succeeded */
  unsigned long size;
  char message[LIBJPEG_MESSAGE_SIZE]; /* libjpeg's own, after a failure */
} LibjpegEncoder;

void libjpeg_encoder_init(LibjpegEncoder* encoder, int quality);
void libjpeg_encoder_free(LibjpegEncoder* encoder);

/* Damage that libjpeg could paint over fails too: the rows before it are good. */
typedef struct {
  KVL_JpegDecoder table;
  void* state;
  char message[LIBJPEG_MESSAGE_SIZE];
} LibjpegDecoder;

/* Keeps nothing between calls. */
void libjpeg_decoder_init(LibjpegDecoder* decoder);

#ifdef __cplusplus
}
#endif

#endif
