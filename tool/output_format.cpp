#include "output_format.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <sstream>

#include "error.h"

namespace kvl::tool {
namespace {

constexpr OutputFormat kFormats[] = {
    {"png", false, false, "image2pipe", "", "png", "pred=mixed", AV_PIX_FMT_RGB24, AV_PIX_FMT_RGB24,
     AV_PIX_FMT_RGBA, AVCOL_SPC_RGB, AVCOL_RANGE_JPEG},
    // Quantiser 2, in FFmpeg's units of 1/118.
    {"jpg jpeg", false, false, "image2pipe", "", "mjpeg", "flags=+qscale:global_quality=236",
     AV_PIX_FMT_YUVJ444P, AV_PIX_FMT_YUVJ444P, AV_PIX_FMT_NONE, AVCOL_SPC_BT470BG,
     AVCOL_RANGE_JPEG},
    {"bmp", false, false, "image2pipe", "", "bmp", "", AV_PIX_FMT_BGR24, AV_PIX_FMT_BGR24,
     AV_PIX_FMT_NONE, AVCOL_SPC_RGB, AVCOL_RANGE_JPEG},
    {"tif tiff", false, false, "image2pipe", "", "tiff", "compression_algo=deflate",
     AV_PIX_FMT_RGB24, AV_PIX_FMT_RGB24, AV_PIX_FMT_RGBA, AVCOL_SPC_RGB, AVCOL_RANGE_JPEG},
    {"ppm pnm", false, false, "image2pipe", "", "ppm", "", AV_PIX_FMT_RGB24, AV_PIX_FMT_RGB24,
     AV_PIX_FMT_NONE, AVCOL_SPC_RGB, AVCOL_RANGE_JPEG},
    {"mp4", true, false, "mp4", "movflags=+faststart", "libx264", "crf=18", AV_PIX_FMT_YUV420P,
     AV_PIX_FMT_YUV444P, AV_PIX_FMT_NONE, AVCOL_SPC_BT709, AVCOL_RANGE_MPEG},
    {"mkv", true, false, "matroska", "", "ffv1", "level=3:slicecrc=1", AV_PIX_FMT_BGR0,
     AV_PIX_FMT_BGR0, AV_PIX_FMT_BGRA, AVCOL_SPC_RGB, AVCOL_RANGE_JPEG},
    {"y4m", true, true, "yuv4mpegpipe", "", "wrapped_avframe", "", AV_PIX_FMT_YUV444P,
     AV_PIX_FMT_YUV444P, AV_PIX_FMT_NONE, AVCOL_SPC_UNSPECIFIED, AVCOL_RANGE_MPEG},
};

bool hasExtension(const OutputFormat& format, const std::string& extension) {
  std::istringstream extensions(format.extensions);
  for (std::string one; extensions >> one;) {
    if (one == extension) return true;
  }
  return false;
}

std::string knownExtensions() {
  std::string list;
  for (const OutputFormat& format : kFormats) {
    list += (list.empty() ? "" : " ") + std::string(format.extensions);
  }
  return list;
}

}  // namespace

const char* const kFormatsHelp =
    "Inputs are pictures and clips of any format that FFmpeg decodes, known by their contents; a\n"
    "picture gives a picture, a clip a clip. Grey, palette and 16-bit inputs become 24-bit "
    "colour;\n"
    "alpha, except where an operation is about it, sound, subtitles and metadata are not carried "
    "over.\n"
    "Outputs, by the extension of their name:\n"
    "  .png .bmp .tif .tiff .ppm .pnm  the result's bytes exactly\n"
    "  .jpg .jpeg                      4:4:4, full range, quantiser 2\n"
    "  .mp4                            H.264, BT.709, CRF 18; 4:2:0, or 4:4:4 where width or "
    "height\n"
    "                                  is odd, which not every player shows\n"
    "  .mkv                            FFV1, the result's bytes exactly\n"
    "  .y4m, or - for standard output  Y4M 4:4:4; - as input reads Y4M from standard input\n"
    "Frame times, frame rate and rotation of a clip are kept; Y4M keeps the rate alone. YUV "
    "inputs\n"
    "that do not name their matrix count as BT.601 up to 1024x576 pixels, as BT.709 above.\n"
    "Idle threads of the team sleep unless OMP_WAIT_POLICY says otherwise.\n"
    "Exit status: 0 done, 1 failed, 2 wrong usage. A file that could not be finished is removed.";

const OutputFormat& outputFormat(const std::string& path) {
  std::string extension = path == "-" ? ".y4m" : std::filesystem::path(path).extension().string();
  std::ranges::transform(extension, extension.begin(), [](unsigned char letter) {
    return static_cast<char>(std::tolower(letter));
  });
  const auto* format = std::ranges::find_if(kFormats, [&](const OutputFormat& one) {
    return extension.size() > 1 && hasExtension(one, extension.substr(1));
  });
  if (format == std::end(kFormats)) {
    throw Error(path, "unknown output extension; known are " + knownExtensions(), usage);
  }
  return *format;
}

const OutputFormat& outputFormatWithAlpha(const std::string& path) {
  const OutputFormat& format = outputFormat(path);
  if (format.pixelsWithAlpha == AV_PIX_FMT_NONE) {
    throw Error(outputName(path), "holds no alpha; .png, .tif, .tiff and .mkv do", usage);
  }
  return format;
}

}  // namespace kvl::tool
