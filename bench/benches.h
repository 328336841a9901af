// One function a file of benchmarks; main() calls each.
#pragma once

namespace kvl::bench {

void addGaussianBlur();
void addSelectiveBlur();
void addSelectiveSharpen();

}  // namespace kvl::bench
