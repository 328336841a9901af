// Files of plain bytes, of which - is standard input or output.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "part_file.h"

namespace kvl::tool {

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

// The bytes of a file, or the first of one that has more than `most`.
std::vector<uint8_t> readBytes(const std::string& path,
                               size_t most = std::numeric_limits<size_t>::max());

// A file that has its name only once it is whole. Every call throws Error when it fails.
class ByteWriter {
 public:
  explicit ByteWriter(const std::string& path);

  void write(const uint8_t* bytes, size_t count);
  void finish();

 private:
  std::FILE* stream() const { return file_ ? file_.get() : stdout; }
  void check(bool done) const;

  std::string name_;
  std::optional<PartFile> part_;
  File file_;
};

}  // namespace kvl::tool
