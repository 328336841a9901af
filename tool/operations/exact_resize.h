// How far a resized picture is from the same resize in double precision.
#pragma once

#include <vector>

#include "dib.h"
#include "options.h"

namespace kvl::tool {

// Compares results, frame by frame, with bilinear samples where the picture is enlarged and area
// averages where it is shrunk.
class ExactResize {
 public:
  // `into` is the part of the result, all of it over the frame, that shows `source` of the frame.
  void compare(const Dib& frame, const Edges& source, const Dib& result, const RECT& into);

  double psnr() const;
  double largestError() const { return largest_; }
  // Of any sample, and of the mean of a frame, from one frame to the next.
  double largestJump() const { return largestJump_; }
  double largestMeanJump() const { return largestMeanJump_; }

 private:
  std::vector<float> errors_;  // of the frame before
  double mean_ = 0;
  double squares_ = 0;
  double samples_ = 0;
  double largest_ = 0;
  double largestJump_ = 0;
  double largestMeanJump_ = 0;
};

}  // namespace kvl::tool
