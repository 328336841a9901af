#include "part_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "error.h"

namespace kvl::tool {

namespace fs = std::filesystem;

PartFile::PartFile(const std::string& finalPath) : name_(finalPath) {
  std::error_code unknown;
  const fs::file_status status = fs::status(finalPath, unknown);
  if (fs::exists(status) && !fs::is_regular_file(status)) {
    throw Error(name_, fs::is_directory(status) ? "is a directory" : "is not a regular file");
  }
  // A symbolic link stays one: what it points to is replaced.
  const fs::path target = fs::exists(status) ? fs::canonical(finalPath) : fs::path(finalPath);
  const fs::path folder = target.has_parent_path() ? target.parent_path() : fs::path(".");
  if (!fs::is_directory(folder, unknown)) throw Error(name_, "the output folder does not exist");

  finalPath_ = target.string();
  partPath_ = (folder / (".kvl-" + std::to_string(getpid()) + ".part")).string();
  const int file = open(partPath_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (file < 0) throw Error(name_, std::strerror(errno));
  close(file);
}

PartFile::~PartFile() {
  if (!kept_) unlink(partPath_.c_str());
}

void PartFile::keep() {
  if (std::rename(partPath_.c_str(), finalPath_.c_str()) != 0) {
    throw Error(name_, std::strerror(errno));
  }
  kept_ = true;
}

}  // namespace kvl::tool
