#include "benches.h"
#include "support/bench_image.h"

#ifdef KVL_BENCH_JPEG
#include <omp.h>

#include <cstdio>
#include <cstdlib>

// Needs FILE and size_t.
#include <jpeglib.h>

#include "libjpeg_coder.h"

namespace kvl::bench {
namespace {

constexpr int quality = 85;
constexpr size_t stride = width * 3;

const std::vector<uint8_t>& source() {
  static const std::vector<uint8_t> bytes = photoLike(3);
  return bytes;
}

uint8_t* rowFromTop(std::vector<uint8_t>& bits, JDIMENSION y) {
  return bits.data() + (height - 1 - y) * stride;
}

// libjpeg's own colour path, from and to the same bottom-up rows.
void encodeByLibjpeg(int sampling, std::vector<uint8_t>& file) {
  static std::vector<uint8_t> bits = source();
  jpeg_compress_struct info;
  jpeg_error_mgr errors;
  info.err = jpeg_std_error(&errors);
  jpeg_create_compress(&info);
  unsigned char* bytes = nullptr;
  unsigned long size = 0;
  jpeg_mem_dest(&info, &bytes, &size);
  info.image_width = width;
  info.image_height = height;
  info.input_components = 3;
  info.in_color_space = JCS_EXT_BGR;
  jpeg_set_defaults(&info);
  jpeg_set_quality(&info, quality, TRUE);
  info.comp_info[0].h_samp_factor = sampling == KVL_JPEG_444 ? 1 : 2;
  info.comp_info[0].v_samp_factor = sampling == KVL_JPEG_420 ? 2 : 1;
  jpeg_start_compress(&info, TRUE);
  while (info.next_scanline < info.image_height) {
    JSAMPROW rows[16];
    JDIMENSION count = 0;
    for (; count < 16 && info.next_scanline + count < info.image_height; ++count) {
      rows[count] = rowFromTop(bits, info.next_scanline + count);
    }
    jpeg_write_scanlines(&info, rows, count);
  }
  jpeg_finish_compress(&info);
  jpeg_destroy_compress(&info);
  file.assign(bytes, bytes + size);
  std::free(bytes);
}

void decodeByLibjpeg(const std::vector<uint8_t>& file, std::vector<uint8_t>& bits) {
  jpeg_decompress_struct info;
  jpeg_error_mgr errors;
  info.err = jpeg_std_error(&errors);
  jpeg_create_decompress(&info);
  jpeg_mem_src(&info, file.data(), file.size());
  jpeg_read_header(&info, TRUE);
  info.out_color_space = JCS_EXT_BGR;
  jpeg_start_decompress(&info);
  while (info.output_scanline < info.output_height) {
    JSAMPROW rows[4];
    for (JDIMENSION i = 0; i < 4; ++i) {
      const JDIMENSION y = info.output_scanline + i;
      rows[i] = rowFromTop(bits, y < info.output_height ? y : info.output_height - 1);
    }
    jpeg_read_scanlines(&info, rows, 4);
  }
  jpeg_finish_decompress(&info);
  jpeg_destroy_decompress(&info);
}

void encode(int sampling, std::vector<uint8_t>& file) {
  static const BITMAPINFOHEADER size = header();
  LibjpegEncoder encoder;
  libjpeg_encoder_init(&encoder, quality);
  if (KVL_JpegWriteRawImage(&encoder.table, &size, source().data(), sampling, 0, 0, nullptr) != 0) {
    std::fprintf(stderr, "jpeg: %s\n", encoder.message);
    std::exit(1);
  }
  file.assign(encoder.bytes, encoder.bytes + encoder.size);
  libjpeg_encoder_free(&encoder);
}

void decode(const std::vector<uint8_t>& file, std::vector<uint8_t>& bits) {
  static const BITMAPINFOHEADER size = header();
  LibjpegDecoder decoder;
  libjpeg_decoder_init(&decoder);
  KVL_QvjDecompress(&decoder.table, file.data(), file.size(), nullptr, &size, bits.data(), 0,
                    nullptr, nullptr);
}

void addSampling(int sampling, const std::string& variant) {
  static std::vector<uint8_t> written[3];
  static std::vector<uint8_t> bits(source().size()), peerBits(source().size());
  std::vector<uint8_t>& file = written[sampling];
  const auto result = [&file]() -> const std::vector<uint8_t>& { return file; };
  const auto pixels = []() -> const std::vector<uint8_t>& { return bits; };
  // One thread whatever is asked for.
  const auto alone = [](int) {};

  std::vector<uint8_t> peer;
  encode(sampling, file);
  encodeByLibjpeg(sampling, peer);
  if (peer != file) {
    std::fprintf(stderr, "jpeg-write/%s: libjpeg differs\n", variant.c_str());
    std::exit(1);
  }
  addKvl(
      "jpeg-write", variant, [=, &file] { encode(sampling, file); }, result);
  add("jpeg-write", variant, "libjpeg-turbo", alone,
      [=, &file] { encodeByLibjpeg(sampling, file); });

  addKvl(
      "jpeg-read", variant, [&file] { decode(file, bits); }, pixels);
  add("jpeg-read", variant, "libjpeg-turbo", alone, [&file] { decodeByLibjpeg(file, peerBits); });

  addKvl(
      "jpeg-write-read", variant,
      [=, &file] {
        encode(sampling, file);
        decode(file, bits);
      },
      pixels);
  add("jpeg-write-read", variant, "libjpeg-turbo", alone, [=, &file] {
    encodeByLibjpeg(sampling, file);
    decodeByLibjpeg(file, peerBits);
  });
}

}  // namespace

void addJpeg() {
  addSampling(KVL_JPEG_444, "444-q85");
  addSampling(KVL_JPEG_422, "422-q85");
  addSampling(KVL_JPEG_420, "420-q85");
}

}  // namespace kvl::bench
#else
namespace kvl::bench {

// Without libjpeg there is no coder to drive.
void addJpeg() {}

}  // namespace kvl::bench
#endif
