#include "motion/report.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "error.h"

namespace kvl::tool {

void MotionReport::add(const std::vector<BlockMotion>& blocks, const CommonMotion& common) {
  ++pairs_;
  if (format_ == "csv") {
    addCsv(blocks);
  } else if (format_ == "json") {
    addJson(blocks, common);
  } else {
    addText(blocks, common);
  }
  if (std::ferror(stdout) != 0) finish();
}

void MotionReport::addText(const std::vector<BlockMotion>& blocks,
                           const CommonMotion& common) const {
  if (!isClip_) {
    std::printf("%6s %6s %8s %8s %12s\n", "x", "y", "dx", "dy", "score");
    for (const BlockMotion& block : blocks) {
      std::printf("%6d %6d %8g %8g %12.0f\n", block.x, block.y, block.moved.x, block.moved.y,
                  block.score);
    }
  }
  std::printf("frame %lld moved by %.3f %.3f, %lld of %zu blocks agreeing\n", pairs_,
              common.moved.x, common.moved.y, static_cast<long long>(common.agreeing),
              blocks.size());
}

void MotionReport::addCsv(const std::vector<BlockMotion>& blocks) const {
  if (pairs_ == 1) std::printf("frame,x,y,dx,dy,score\n");
  for (const BlockMotion& block : blocks) {
    std::printf("%lld,%d,%d,%g,%g,%.0f\n", pairs_, block.x, block.y, block.moved.x, block.moved.y,
                block.score);
  }
}

void MotionReport::addJson(const std::vector<BlockMotion>& blocks,
                           const CommonMotion& common) const {
  std::printf("%s\n{\"frame\":%lld,\"dx\":%.3f,\"dy\":%.3f,\"agreeing\":%lld,\"blocks\":[",
              pairs_ == 1 ? "[" : ",", pairs_, common.moved.x, common.moved.y,
              static_cast<long long>(common.agreeing));
  const char* separator = "";
  for (const BlockMotion& block : blocks) {
    std::printf("%s\n{\"x\":%d,\"y\":%d,\"dx\":%g,\"dy\":%g,\"score\":%.0f}", separator, block.x,
                block.y, block.moved.x, block.moved.y, block.score);
    separator = ",";
  }
  std::printf("]}");
}

void MotionReport::finish() {
  if (format_ == "json") std::printf("%s]\n", pairs_ == 0 ? "[" : "\n");
  errno = 0;
  if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
    throw Error(outputName("-"), std::string("cannot be written (") + std::strerror(errno) + ")");
  }
}

}  // namespace kvl::tool
