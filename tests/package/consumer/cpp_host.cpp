// A flat picture stays flat.
#include <kvl/kvl.h>

#include <algorithm>
#include <iostream>
#include <vector>

int main() {
  BITMAPINFOHEADER header = {};
  header.biSize = sizeof header;
  header.biWidth = 64;
  header.biHeight = 48;
  header.biPlanes = 1;
  header.biBitCount = 24;
  std::vector<uint8_t> image(64 * 3 * 48, 200), work(image.size());

  InitKVLWrapper();
  KVL_GaussianBlur(&header, work.data(), &header, image.data(), 2);
  const auto flat = std::count(image.begin(), image.end(), 200);
  std::cout << "C++ host: " << flat << " of " << image.size() << " bytes flat\n";
  return flat == static_cast<std::ptrdiff_t>(image.size()) ? 0 : 1;
}
