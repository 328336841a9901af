// The average of an image over many scalings or rotations of itself about one centre.
#pragma once

#include <cstdint>

#include "filters/one_pass.h"
#include "filters/similarity_average_kernels.h"

namespace kvl {

// A path through every pixel, along which its samples lie.
struct SimilarityPath {
  // Path length of a pixel, in units of its distance from the centre.
  double lengthPerDistance;
  // What `place` understands by the length.
  int32_t extent;
  // Spreads `count` samples evenly over the path.
  void (*place)(int32_t extent, SimilaritySample* samples, int32_t count);
};

// False for a coordinate that is no number or lies farther than 2^20 pixels from 0.
bool isUsableCentre(double centreX, double centreY);

// Each sample becomes the mean of the path's bilinear samples; see KVL_BlurZoom for the arithmetic.
void averageAlongPath(const OnePassImages& images, double centreX, double centreY,
                      const SimilarityPath& path);

}  // namespace kvl
