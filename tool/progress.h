// How far a clip is, on standard error.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace kvl::tool {

// On a terminal one line with a bar that is redrawn, elsewhere a plain line every few seconds and
// one at the end. Destroyed before finish(), it clears its line.
class Progress {
 public:
  // `total` frames, or 0 when unknown.
  Progress(std::string name, int64_t total);
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  ~Progress();

  void advance();
  void finish();

 private:
  using Clock = std::chrono::steady_clock;

  double framesPerSecond(Clock::time_point now) const;
  std::string state(Clock::time_point now) const;
  void show(Clock::time_point now);

  std::string name_;
  int64_t total_;
  int64_t done_ = 0;
  bool terminal_;
  bool lineShown_ = false;
  Clock::time_point start_;
  Clock::time_point shown_;
};

}  // namespace kvl::tool
