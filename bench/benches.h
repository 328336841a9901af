// One function a file of benchmarks; main() calls each.
#pragma once

namespace kvl::bench {

void addAveragingBlur();
void addClassicBlur();
void addCorrelation();
void addGaussianBlur();
void addRegion();
void addSelectiveBlur();
void addSelectiveSharpen();
void addOnePass();
void addWarp();

}  // namespace kvl::bench
