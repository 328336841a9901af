#include "jpeg/decompress.h"
#include "jpeg/jpeg_to_dib.h"
#include "jpeg/write_raw_image.h"
#include "kvl/kvl.h"

int32_t KVL_JpegWriteRawImage(const KVL_JpegEncoder* encoder, const BITMAPINFOHEADER* header,
                              const uint8_t* bits, int32_t sampling, int32_t videoRange,
                              int32_t bandRows, int32_t* rowsWritten) {
  return kvl::jpegWriteRawImage(encoder, header, bits, {sampling, videoRange, bandRows},
                                rowsWritten);
}

int32_t KVL_QvjJpegToDib(const KVL_JpegDecoder* decoder, const uint8_t* data, size_t dataSize,
                         const KVL_JpegReadOptions* options, BITMAPINFOHEADER* header,
                         uint8_t* bits, size_t* bitsSize, int32_t* rowsRead) {
  return kvl::jpegToDib({decoder, data, dataSize, options}, header, bits, bitsSize, rowsRead);
}

int32_t KVL_QvjDecompress(const KVL_JpegDecoder* decoder, const uint8_t* data, size_t dataSize,
                          const KVL_JpegReadOptions* options, const BITMAPINFOHEADER* header,
                          uint8_t* bits, int32_t stride, const RECT* rect, int32_t* rowsRead) {
  return kvl::jpegDecompress({decoder, data, dataSize, options}, {header, bits, stride, rect},
                             rowsRead);
}
