// The vectors as text, CSV or JSON on standard output.
#pragma once

#include <string>
#include <vector>

#include "motion/block_motion.h"

namespace kvl::tool {

class MotionReport {
 public:
  // `format` is text, csv or json; a clip has one line of text a pair of frames, where two pictures
  // have one a block.
  MotionReport(std::string format, bool isClip) : format_(std::move(format)), isClip_(isClip) {}

  void add(const std::vector<BlockMotion>& blocks, const CommonMotion& common);

  // Completes the output. Throws Error when it could not be written.
  void finish();

 private:
  void addText(const std::vector<BlockMotion>& blocks, const CommonMotion& common) const;
  void addCsv(const std::vector<BlockMotion>& blocks) const;
  void addJson(const std::vector<BlockMotion>& blocks, const CommonMotion& common) const;

  std::string format_;
  bool isClip_;
  long long pairs_ = 0;
};

}  // namespace kvl::tool
