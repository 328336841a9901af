// An output file that exists under its final name only when it is whole.
#pragma once

#include <string>

namespace kvl::tool {

// Creates a temporary file in the folder of `finalPath`. Destroying the object removes it, unless
// keep() gave it the final name before.
class PartFile {
 public:
  explicit PartFile(const std::string& finalPath);
  PartFile(const PartFile&) = delete;
  PartFile& operator=(const PartFile&) = delete;
  ~PartFile();

  const std::string& path() const { return partPath_; }

  // Replaces whatever had the final name in one step.
  void keep();

 private:
  std::string name_;
  std::string finalPath_;
  std::string partPath_;
  bool kept_ = false;
};

}  // namespace kvl::tool
