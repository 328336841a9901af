// Real JPEG files through libjpeg: the results are those of its own colour conversion.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

// Needs FILE and size_t.
#include <jpeglib.h>

#include "libjpeg_coder.h"
#include "support/testing.h"

namespace kvl::test {
namespace {

Bytes fileBytes(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(file), {});
}

std::vector<std::filesystem::path> photographs() {
  std::vector<std::filesystem::path> paths;
  for (const auto& entry :
       std::filesystem::directory_iterator("/usr/share/libjxl-testdata/jxl/flower")) {
    if (entry.path().extension() == ".jpg") paths.push_back(entry.path());
  }
  return paths;
}

Bytes smallFile() {
  return fileBytes(
      "/usr/share/libjxl-testdata/jxl/flower/flower_small.q85_420_non_interleaved.jpg");
}

// A picture as libjpeg itself decodes it: rows from the top, without padding.
struct Decoded {
  int32_t width = 0, height = 0, channels = 0;
  Bytes pixels;
};

Decoded decodeByLibjpeg(const Bytes& file) {
  jpeg_decompress_struct info;
  jpeg_error_mgr errors;
  info.err = jpeg_std_error(&errors);
  jpeg_create_decompress(&info);
  jpeg_mem_src(&info, file.data(), file.size());
  jpeg_read_header(&info, TRUE);
  if (info.jpeg_color_space != JCS_GRAYSCALE) info.out_color_space = JCS_EXT_BGR;
  jpeg_start_decompress(&info);
  Decoded decoded;
  decoded.width = static_cast<int32_t>(info.output_width);
  decoded.height = static_cast<int32_t>(info.output_height);
  decoded.channels = info.output_components;
  const size_t rowBytes = size_t{info.output_width} * static_cast<size_t>(decoded.channels);
  decoded.pixels.resize(rowBytes * info.output_height);
  while (info.output_scanline < info.output_height) {
    uint8_t* row = decoded.pixels.data() + info.output_scanline * rowBytes;
    jpeg_read_scanlines(&info, &row, 1);
  }
  jpeg_finish_decompress(&info);
  jpeg_destroy_decompress(&info);
  return decoded;
}

Bytes encodeByLibjpeg(const TestImage& image, int quality, int sampling) {
  jpeg_compress_struct info;
  jpeg_error_mgr errors;
  info.err = jpeg_std_error(&errors);
  jpeg_create_compress(&info);
  unsigned char* bytes = nullptr;
  unsigned long size = 0;
  jpeg_mem_dest(&info, &bytes, &size);
  info.image_width = static_cast<JDIMENSION>(image.width());
  info.image_height = static_cast<JDIMENSION>(image.height());
  info.input_components = image.header.biBitCount / 8;
  info.in_color_space = info.input_components == 1 ? JCS_GRAYSCALE : JCS_EXT_BGR;
  jpeg_set_defaults(&info);
  jpeg_set_quality(&info, quality, TRUE);
  info.comp_info[0].h_samp_factor = sampling == KVL_JPEG_444 || info.input_components == 1 ? 1 : 2;
  info.comp_info[0].v_samp_factor = sampling == KVL_JPEG_420 && info.input_components == 3 ? 2 : 1;
  jpeg_start_compress(&info, TRUE);
  while (info.next_scanline < info.image_height) {
    uint8_t* row = image.row(image.height() - 1 - static_cast<int32_t>(info.next_scanline));
    jpeg_write_scanlines(&info, &row, 1);
  }
  jpeg_finish_compress(&info);
  jpeg_destroy_compress(&info);
  Bytes file(bytes, bytes + size);
  std::free(bytes);
  return file;
}

struct Read {
  int32_t status = -1, rows = -1;
  BITMAPINFOHEADER header = {};
  Bytes bits;
  std::string message;
};

Read readTopDown(const Bytes& file, uint64_t memoryLimit = 0, int32_t scanLimit = 0) {
  LibjpegDecoder decoder;
  libjpeg_decoder_init(&decoder);
  KVL_JpegReadOptions options = {};
  options.size = sizeof options;
  options.topDown = 1;
  options.pixelLimit = 10000000;
  options.memoryLimit = memoryLimit;
  options.scanLimit = scanLimit;
  Read read;
  size_t size = 0;
  read.status = KVL_QvjJpegToDib(&decoder.table, file.data(), file.size(), &options, &read.header,
                                 nullptr, &size, nullptr);
  if (read.status == KVL_JPEG_NEEDS_BUFFER) {
    read.bits.assign(size, 0xCD);
    read.status = KVL_QvjJpegToDib(&decoder.table, file.data(), file.size(), &options, &read.header,
                                   read.bits.data(), &size, &read.rows);
  }
  read.message = decoder.message;
  return read;
}

TEST(JpegFiles, EveryPhotographDecodesToTheBytesOfLibjpegsOwnColourPath) {
  initialise();
  const auto paths = photographs();
  ASSERT_GE(paths.size(), 12u);
  for (const auto& path : paths) {
    const Bytes file = fileBytes(path);
    const Decoded expected = decodeByLibjpeg(file);
    const Read read = readTopDown(file);
    const std::string name = path.filename().string();
    ASSERT_EQ(read.status, 0) << name << ": " << read.message;
    ASSERT_EQ(read.header.biWidth, expected.width);
    ASSERT_EQ(-read.header.biHeight, expected.height);
    ASSERT_EQ(read.header.biBitCount, 8 * expected.channels);
    const size_t rowBytes = static_cast<size_t>(expected.width * expected.channels);
    const size_t stride = read.bits.size() / static_cast<size_t>(expected.height);
    size_t wrong = 0;
    for (int32_t y = 0; y < expected.height; ++y) {
      const uint8_t* row = read.bits.data() + static_cast<size_t>(y) * stride;
      for (size_t x = 0; x < rowBytes; ++x) {
        wrong += row[x] != expected.pixels[static_cast<size_t>(y) * rowBytes + x];
      }
    }
    EXPECT_EQ(wrong, 0u) << name;
  }
}

TEST(JpegFiles, WritesTheBytesOfLibjpegsOwnColourPath) {
  forEachLevelAndTeam([] {
    for (const auto& [width, height] : {std::pair{64, 48}, {37, 45}, {1, 1}, {130, 67}}) {
      for (const uint16_t bitCount : {uint16_t{24}, uint16_t{8}}) {
        for (const int sampling : {KVL_JPEG_444, KVL_JPEG_422, KVL_JPEG_420}) {
          TestImage image(width, height, bitCount);
          image.fillRandom(static_cast<uint64_t>(width * 3 + sampling));
          LibjpegEncoder encoder;
          libjpeg_encoder_init(&encoder, 88);
          ASSERT_EQ(KVL_JpegWriteRawImage(&encoder.table, &image.header, image.bits(), sampling, 0,
                                          0, nullptr),
                    0)
              << encoder.message;
          const Bytes file(encoder.bytes, encoder.bytes + encoder.size);
          EXPECT_EQ(file, encodeByLibjpeg(image, 88, sampling)) << width << " " << sampling;
          libjpeg_encoder_free(&encoder);
        }
      }
    }
  });
}

// The bytes have moved several times by then.
TEST(JpegFiles, AnEncoderThatIsGivenUpFreesItsBytesOnce) {
  LibjpegEncoder encoder;
  libjpeg_encoder_init(&encoder, 95);
  KVL_JpegGeometry geometry = {};
  geometry.width = 1024;
  geometry.height = 64;
  geometry.colorSpace = KVL_JPEG_GREY;
  geometry.componentCount = 1;
  geometry.horizontal[0] = geometry.vertical[0] = 1;
  ASSERT_EQ(encoder.table.open(encoder.table.user, &geometry), 0);
  TestImage noise(1024, 8, 8);
  noise.fillRandom(1);
  const uint8_t* lines[8];
  for (int32_t y = 0; y < 8; ++y) lines[y] = noise.row(y);
  const uint8_t* const* const components[1] = {lines};
  for (int32_t mcuRow = 0; mcuRow < 7; ++mcuRow) {
    ASSERT_EQ(encoder.table.writeRows(encoder.table.user, mcuRow, components), 0);
  }
  encoder.table.error(encoder.table.user, KVL_JPEG_BAD_CODER);
  EXPECT_EQ(encoder.bytes, nullptr);
  EXPECT_EQ(encoder.size, 0u);
  libjpeg_encoder_free(&encoder);
}

TEST(JpegFiles, FilesCutShortEndInAStatusAndGoodRows) {
  initialise();
  const Bytes file = smallFile();
  const Read whole = readTopDown(file);
  ASSERT_EQ(whole.status, 0);
  const size_t stride = whole.bits.size() / static_cast<size_t>(-whole.header.biHeight);
  for (size_t size = 0; size < file.size(); size += 97) {
    const Read read = readTopDown(Bytes(file.begin(), file.begin() + static_cast<ptrdiff_t>(size)));
    ASSERT_EQ(read.status, LIBJPEG_DAMAGED) << size;
    ASSERT_NE(read.message, "");
    if (read.rows <= 0) continue;
    const auto good = static_cast<ptrdiff_t>(static_cast<size_t>(read.rows) * stride);
    ASSERT_TRUE(std::equal(read.bits.begin(), read.bits.begin() + good, whole.bits.begin()));
  }
  // An interleaved file is decoded as it comes, so that its upper rows survive.
  const Bytes other = fileBytes("/usr/share/libjxl-testdata/jxl/flower/flower_cropped.jpg");
  const Read half =
      readTopDown(Bytes(other.begin(), other.begin() + static_cast<ptrdiff_t>(other.size() / 2)));
  EXPECT_EQ(half.status, LIBJPEG_DAMAGED);
  EXPECT_GT(half.rows, 200);
  EXPECT_LT(half.rows, 1040);
}

// Where the frame header of a file begins, after its marker and length.
size_t frameHeader(const Bytes& file) {
  for (size_t i = 2; i + 4 < file.size(); i += 2u + file[i + 2] * 256u + file[i + 3]) {
    if (file[i + 1] == 0xC0 || file[i + 1] == 0xC2) return i + 4;
  }
  return 0;
}

TEST(JpegFiles, HostileHeadersEndInAStatus) {
  initialise();
  const Bytes file = smallFile();
  const size_t frame = frameHeader(file);
  ASSERT_GT(frame, 0u);
  const auto with = [&](std::vector<std::pair<size_t, uint8_t>> changes) {
    Bytes bad = file;
    for (const auto& [at, value] : changes) bad[frame + at] = value;
    return bad;
  };
  EXPECT_EQ(readTopDown(with({{1, 255}, {2, 255}, {3, 255}, {4, 255}})).status,
            LIBJPEG_UNSUPPORTED);
  // The largest that libjpeg takes, over the limit of pixels.
  EXPECT_EQ(readTopDown(with({{1, 255}, {2, 220}, {3, 255}, {4, 220}})).status,
            KVL_JPEG_OVER_LIMIT);
  EXPECT_EQ(readTopDown(with({{5, 0}})).status, LIBJPEG_DAMAGED);
  EXPECT_EQ(readTopDown(with({{3, 0}, {4, 0}})).status, LIBJPEG_DAMAGED);
  EXPECT_EQ(readTopDown(with({{0, 12}})).status, LIBJPEG_UNSUPPORTED);
  EXPECT_EQ(readTopDown(with({{7, 0x55}})).status, LIBJPEG_DAMAGED);
  EXPECT_EQ(readTopDown({}).status, LIBJPEG_DAMAGED);
}

TEST(JpegFiles, MemoryAndScansAreBounded) {
  initialise();
  const Bytes file =
      fileBytes("/usr/share/libjxl-testdata/jxl/flower/flower.png.im_q85_420_progr.jpg");
  // The coefficients of all blocks take 10 MB.
  EXPECT_EQ(readTopDown(file, 4 << 20).status, LIBJPEG_NO_MEMORY);
  EXPECT_EQ(readTopDown(file, 0, 9).status, LIBJPEG_SCANS);
  EXPECT_EQ(readTopDown(file, 0, 10).status, 0);
  // The last scan over and over.
  size_t scan = file.size() - 2;
  while (file[scan] != 0xFF || file[scan + 1] != 0xDA) --scan;
  Bytes endless(file.begin(), file.end() - 2);
  for (int i = 0; i < 200; ++i)
    endless.insert(endless.end(), file.begin() + static_cast<ptrdiff_t>(scan), file.end() - 2);
  const int32_t status = readTopDown(endless).status;
  EXPECT_TRUE(status == LIBJPEG_SCANS || status == LIBJPEG_DAMAGED) << status;
}

}  // namespace
}  // namespace kvl::test
