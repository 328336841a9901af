#include "libjpeg_coder.h"

#include <setjmp.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* libjpeg wants size_t and FILE declared. */
#include <jerror.h>
#include <jpeglib.h>

/* ---- Errors ------------------------------------------------------------------------------ */

/* libjpeg must not return from an error: it jumps back to the function that called it, and never
   out of a function of the table. */
typedef struct {
  struct jpeg_error_mgr manager; /* first, so that libjpeg's pointer to it is one to this */
  jmp_buf back;
  char* message;
  int32_t status;
} Errors;

static int32_t status_of(int code) {
  switch (code) {
    case JERR_OUT_OF_MEMORY:
    case JERR_NO_BACKING_STORE:
      return LIBJPEG_NO_MEMORY;
    case JERR_SOF_UNSUPPORTED:
    case JERR_BAD_PRECISION:
    case JERR_ARITH_NOTIMPL:
    case JERR_COMPONENT_COUNT:
    case JERR_IMAGE_TOO_BIG:
      return LIBJPEG_UNSUPPORTED;
    default:
      return LIBJPEG_DAMAGED;
  }
}

static void jump_back(j_common_ptr info) {
  Errors* errors = (Errors*)info->err;
  char text[JMSG_LENGTH_MAX];
  errors->manager.format_message(info, text);
  snprintf(errors->message, LIBJPEG_MESSAGE_SIZE, "%s", text);
  if (errors->status == 0) errors->status = status_of(errors->manager.msg_code);
  longjmp(errors->back, 1);
}

/* A warning is damage, and as good as an error; traces are dropped. */
static void heed_message(j_common_ptr info, int level) {
  if (level < 0) jump_back(info);
}

static struct jpeg_error_mgr* init_errors(Errors* errors, char* message) {
  jpeg_std_error(&errors->manager);
  errors->manager.error_exit = jump_back;
  errors->manager.emit_message = heed_message;
  errors->message = message;
  errors->status = 0;
  message[0] = 0;
  return &errors->manager;
}

static int32_t fail(char* message, const char* text, int32_t status) {
  snprintf(message, LIBJPEG_MESSAGE_SIZE, "%s", text);
  return status;
}

/* ---- Encoder ----------------------------------------------------------------------------- */

typedef struct {
  struct jpeg_compress_struct info;
  Errors errors;
} Compression;

static void begin_compression(struct jpeg_compress_struct* info, const LibjpegEncoder* encoder,
                              const KVL_JpegGeometry* geometry) {
  int c;
  info->image_width = (JDIMENSION)geometry->width;
  info->image_height = (JDIMENSION)geometry->height;
  info->input_components = geometry->componentCount;
  info->in_color_space = geometry->colorSpace == KVL_JPEG_GREY ? JCS_GRAYSCALE : JCS_YCbCr;
  jpeg_set_defaults(info);
  jpeg_set_quality(info, encoder->quality, TRUE);
  if (encoder->progressive) jpeg_simple_progression(info);
  for (c = 0; c < geometry->componentCount; ++c) {
    info->comp_info[c].h_samp_factor = geometry->horizontal[c];
    info->comp_info[c].v_samp_factor = geometry->vertical[c];
  }
  info->raw_data_in = TRUE;
  jpeg_start_compress(info, TRUE);
}

static void close_compression(LibjpegEncoder* encoder) {
  Compression* compression = encoder->state;
  jpeg_destroy_compress(&compression->info);
  free(compression);
  encoder->state = NULL;
}

/* Frees what there is of the file as well. Only the destination knows where it lies by now. */
static void give_compression_up(LibjpegEncoder* encoder) {
  struct jpeg_compress_struct* info = &((Compression*)encoder->state)->info;
  if (encoder->bytes) info->dest->term_destination(info);
  close_compression(encoder);
  libjpeg_encoder_free(encoder);
}

static int32_t encoder_open(void* user, const KVL_JpegGeometry* geometry) {
  LibjpegEncoder* encoder = user;
  Compression* compression = calloc(1, sizeof *compression);
  if (!compression) return fail(encoder->message, "out of memory", LIBJPEG_NO_MEMORY);
  libjpeg_encoder_free(encoder);
  encoder->state = compression;
  compression->info.err = init_errors(&compression->errors, encoder->message);
  if (setjmp(compression->errors.back)) {
    const int32_t status = compression->errors.status;
    give_compression_up(encoder);
    return status;
  }
  jpeg_create_compress(&compression->info);
  jpeg_mem_dest(&compression->info, &encoder->bytes, &encoder->size);
  begin_compression(&compression->info, encoder, geometry);
  return 0;
}

static int32_t encoder_write_rows(void* user, int32_t mcu_row, const uint8_t* const* const* rows) {
  LibjpegEncoder* encoder = user;
  Compression* compression = encoder->state;
  (void)mcu_row;
  if (setjmp(compression->errors.back)) return compression->errors.status;
  /* libjpeg only reads through these pointers. */
  jpeg_write_raw_data(&compression->info, (JSAMPIMAGE)rows,
                      (JDIMENSION)compression->info.max_v_samp_factor * DCTSIZE);
  return 0;
}

static int32_t encoder_finish(void* user) {
  LibjpegEncoder* encoder = user;
  Compression* compression = encoder->state;
  if (setjmp(compression->errors.back)) return compression->errors.status;
  jpeg_finish_compress(&compression->info);
  close_compression(encoder);
  return 0;
}

static void encoder_error(void* user, int32_t status) {
  (void)status;
  give_compression_up(user);
}

void libjpeg_encoder_init(LibjpegEncoder* encoder, int quality) {
  memset(encoder, 0, sizeof *encoder);
  encoder->table.size = sizeof encoder->table;
  encoder->table.user = encoder;
  encoder->table.open = encoder_open;
  encoder->table.writeRows = encoder_write_rows;
  encoder->table.finish = encoder_finish;
  encoder->table.error = encoder_error;
  encoder->quality = quality;
}

void libjpeg_encoder_free(LibjpegEncoder* encoder) {
  free(encoder->bytes);
  encoder->bytes = NULL;
  encoder->size = 0;
}

/* ---- Decoder ----------------------------------------------------------------------------- */

typedef struct {
  struct jpeg_decompress_struct info;
  struct jpeg_progress_mgr progress;
  Errors errors;
  int32_t scan_limit;
  int started;
} Decompression;

/* Called again and again while libjpeg takes in a progressive file. */
static void count_scans(j_common_ptr info) {
  Decompression* decompression = (Decompression*)info;
  if (decompression->info.input_scan_number <= decompression->scan_limit) return;
  decompression->errors.status = LIBJPEG_SCANS;
  info->err->msg_code = JERR_BAD_PROGRESSION;
  jump_back(info);
}

static void close_decompression(LibjpegDecoder* decoder) {
  Decompression* decompression = decoder->state;
  if (!decompression) return;
  jpeg_destroy_decompress(&decompression->info);
  free(decompression);
  decoder->state = NULL;
}

static int32_t decoder_open(void* user, const uint8_t* data, size_t size, uint64_t memory_limit,
                            int32_t scan_limit) {
  LibjpegDecoder* decoder = user;
  Decompression* decompression = calloc(1, sizeof *decompression);
  if (!decompression) return fail(decoder->message, "out of memory", LIBJPEG_NO_MEMORY);
  decoder->state = decompression;
  decompression->scan_limit = scan_limit;
  decompression->info.err = init_errors(&decompression->errors, decoder->message);
  if (setjmp(decompression->errors.back)) {
    const int32_t status = decompression->errors.status;
    close_decompression(decoder);
    return status;
  }
  jpeg_create_decompress(&decompression->info);
  decompression->info.mem->max_memory_to_use =
      memory_limit < 0x7FFFFFFF ? (long)memory_limit : 0x7FFFFFFF;
  decompression->progress.progress_monitor = count_scans;
  decompression->info.progress = &decompression->progress;
  jpeg_mem_src(&decompression->info, data, (unsigned long)size);
  return 0;
}

static int32_t decoder_read_header(void* user, KVL_JpegGeometry* geometry) {
  LibjpegDecoder* decoder = user;
  Decompression* decompression = decoder->state;
  struct jpeg_decompress_struct* info = &decompression->info;
  int c;
  if (setjmp(decompression->errors.back)) return decompression->errors.status;
  jpeg_read_header(info, TRUE);
  geometry->width = (int32_t)info->image_width;
  geometry->height = (int32_t)info->image_height;
  geometry->componentCount = info->num_components;
  geometry->colorSpace = info->jpeg_color_space == JCS_GRAYSCALE ? KVL_JPEG_GREY
                         : info->jpeg_color_space == JCS_YCbCr   ? KVL_JPEG_YCBCR
                         : info->jpeg_color_space == JCS_RGB     ? KVL_JPEG_RGB
                                                                 : 0;
  for (c = 0; c < info->num_components && c < 4; ++c) {
    geometry->horizontal[c] = (uint8_t)info->comp_info[c].h_samp_factor;
    geometry->vertical[c] = (uint8_t)info->comp_info[c].v_samp_factor;
  }
  info->raw_data_out = TRUE;
  return 0;
}

static int32_t decoder_read_rows(void* user, int32_t mcu_row, uint8_t* const* const* rows) {
  LibjpegDecoder* decoder = user;
  Decompression* decompression = decoder->state;
  struct jpeg_decompress_struct* info = &decompression->info;
  (void)mcu_row;
  if (setjmp(decompression->errors.back)) return decompression->errors.status;
  if (!decompression->started) {
    /* Takes in all scans of a progressive file. */
    jpeg_start_decompress(info);
    decompression->started = 1;
  }
  /* libjpeg writes samples, not pointers. */
  jpeg_read_raw_data(info, (JSAMPIMAGE)rows, (JDIMENSION)info->max_v_samp_factor * DCTSIZE);
  return 0;
}

static int32_t decoder_finish(void* user) {
  LibjpegDecoder* decoder = user;
  Decompression* decompression = decoder->state;
  struct jpeg_decompress_struct* info = &decompression->info;
  if (setjmp(decompression->errors.back)) return decompression->errors.status;
  /* The end of the file is looked at only where all of it was wanted. */
  if (decompression->started && info->output_scanline >= info->output_height) {
    jpeg_finish_decompress(info);
  }
  close_decompression(decoder);
  return 0;
}

static void decoder_error(void* user, int32_t status) {
  (void)status;
  close_decompression(user);
}

void libjpeg_decoder_init(LibjpegDecoder* decoder) {
  memset(decoder, 0, sizeof *decoder);
  decoder->table.size = sizeof decoder->table;
  decoder->table.user = decoder;
  decoder->table.open = decoder_open;
  decoder->table.readHeader = decoder_read_header;
  decoder->table.readRows = decoder_read_rows;
  decoder->table.finish = decoder_finish;
  decoder->table.error = decoder_error;
}
