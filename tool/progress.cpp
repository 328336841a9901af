#include "progress.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>

namespace kvl::tool {
namespace {

using namespace std::chrono_literals;

constexpr auto kRedrawEvery = 100ms;
constexpr auto kPlainLineEvery = 5s;
constexpr int kBarWidth = 24;
constexpr const char* kClearLine = "\r\033[K";

std::string bar(int64_t done, int64_t total) {
  const auto filled = static_cast<size_t>(std::min<int64_t>(done * kBarWidth / total, kBarWidth));
  std::string cells(kBarWidth, '.');
  std::fill_n(cells.begin(), filled, '#');
  return cells;
}

}  // namespace

Progress::Progress(std::string name, int64_t total)
    : name_(std::move(name)),
      total_(total),
      terminal_(isatty(STDERR_FILENO) != 0),
      start_(Clock::now()),
      shown_(start_) {}

Progress::~Progress() {
  if (lineShown_) std::fputs(kClearLine, stderr);
}

double Progress::framesPerSecond(Clock::time_point now) const {
  const double seconds = std::chrono::duration<double>(now - start_).count();
  return seconds > 0 ? static_cast<double>(done_) / seconds : 0;
}

std::string Progress::state(Clock::time_point now) const {
  const double rate = framesPerSecond(now);
  std::string frames = std::to_string(done_);
  std::string left;
  if (total_ >= done_) {
    frames += "/";
    frames += std::to_string(total_);
    const auto seconds = static_cast<long long>(static_cast<double>(total_ - done_) / rate + 0.5);
    char text[48];
    std::snprintf(text, sizeof text, ", %lld:%02lld left", seconds / 60, seconds % 60);
    left = text;
  }
  char text[48];
  std::snprintf(text, sizeof text, " frames, %.1f frames/s", rate);
  return frames + text + left;
}

void Progress::show(Clock::time_point now) {
  if (terminal_) {
    const std::string drawn = total_ >= done_ ? bar(done_, total_) : "";
    std::fprintf(stderr, "%s%s %s", kClearLine, drawn.c_str(), state(now).c_str());
    lineShown_ = true;
  } else {
    std::fprintf(stderr, "kvl: %s: %s\n", name_.c_str(), state(now).c_str());
  }
  std::fflush(stderr);
  shown_ = now;
}

void Progress::advance() {
  ++done_;
  const Clock::time_point now = Clock::now();
  if (now - shown_ >= (terminal_ ? Clock::duration(kRedrawEvery) : kPlainLineEvery)) show(now);
}

void Progress::finish() {
  // What was an estimate is known now.
  total_ = done_;
  show(Clock::now());
  if (terminal_) std::fputc('\n', stderr);
  lineShown_ = false;
}

}  // namespace kvl::tool
