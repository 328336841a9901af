// One function a file of benchmarks; main() calls each.
#pragma once

namespace kvl::bench {

void addGaussianBlur();
void addOnePass();

}  // namespace kvl::bench
