// Failures that end the command with one line on standard error.
#pragma once

#include <stdexcept>
#include <string>

namespace kvl::tool {

enum ExitStatus { success = 0, failure = 1, usage = 2 };

class Error : public std::runtime_error {
 public:
  // `subject` is what the line names first: a file, or an option.
  Error(const std::string& subject, const std::string& reason, ExitStatus status = failure)
      : std::runtime_error(subject + ": " + reason), status_(status) {}

  ExitStatus status() const { return status_; }

 private:
  ExitStatus status_;
};

// How messages call a path: "-" is a standard stream.
std::string inputName(const std::string& path);
std::string outputName(const std::string& path);

// FFmpeg's text for an error code.
std::string ffmpegReason(int code);

}  // namespace kvl::tool
