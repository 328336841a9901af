// One function a file of benchmarks; main() calls each.
#pragma once

namespace kvl::bench {

void addAlpha();
void addAveragingBlur();
void addClassicBlur();
void addConvert();
void addCorrelation();
void addGaussianBlur();
void addHalving();
void addJpeg();
void addOnePass();
void addRegion();
void addResize();
void addSelectiveBlur();
void addSelectiveSharpen();
void addWarp();
void addYuvToRgb();

}  // namespace kvl::bench
