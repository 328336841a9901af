// One function a file of benchmarks; main() calls each.
#pragma once

namespace kvl::bench {

void addAveragingBlur();
void addClassicBlur();
void addGaussianBlur();
void addJpeg();
void addRegion();
void addSelectiveBlur();
void addSelectiveSharpen();
void addOnePass();

}  // namespace kvl::bench
