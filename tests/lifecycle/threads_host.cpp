// Many host threads in the library at once, and for long.
//
//   threads_host LIBRARY mixed SECONDS          eight threads, each in all sorts of calls
//   threads_host LIBRARY first ROUNDS           eight threads make the first calls after loading
//   threads_host LIBRARY nested                 calls from inside a parallel region of the host's
//   threads_host LIBRARY soak SECONDS W H       two threads; memory must stay as it is
//   threads_host LIBRARY once                   every call once, before and after InitKVLWrapper
#include <omp.h>

#include <algorithm>
#include <atomic>
#include <barrier>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "mixed_calls.h"

namespace {

constexpr int hostThreads = 8;
constexpr int32_t smallWidth = 121, smallHeight = 83;

class LoadedLibrary {
 public:
  explicit LoadedLibrary(const char* file) {
    if (!load_library(file, &library_)) std::exit(1);
  }
  ~LoadedLibrary() { unload_library(&library_); }
  LoadedLibrary(const LoadedLibrary&) = delete;
  LoadedLibrary& operator=(const LoadedLibrary&) = delete;
  const Library* operator->() const { return &library_; }
  const Library* get() const { return &library_; }

 private:
  Library library_;
};

class OwnFrame {
 public:
  OwnFrame(int32_t width, int32_t height) {
    if (!make_frame(&frame_, width, height)) std::exit(1);
  }
  ~OwnFrame() { free_frame(&frame_); }
  OwnFrame(const OwnFrame&) = delete;
  OwnFrame& operator=(const OwnFrame&) = delete;
  Frame* get() { return &frame_; }

 private:
  Frame frame_;
};

using Results = std::vector<uint64_t>;

// What every call gives on a team of one.
Results expectedResults(const LoadedLibrary& library, Frame* frame) {
  const int team = omp_get_max_threads();
  omp_set_num_threads(1);
  Results results;
  for (int i = 0; i < mixed_call_count; ++i) results.push_back(mixed_call(library.get(), i, frame));
  omp_set_num_threads(team);
  return results;
}

std::atomic<int> g_wrong = 0;

void check(const Results& expected, int call, uint64_t result) {
  if (result == expected[static_cast<size_t>(call)]) return;
  ++g_wrong;
  std::fprintf(stderr, "threads_host: another result of %s\n", mixed_call_name(call));
}

class Random {
 public:
  explicit Random(int seed) : state_(static_cast<uint32_t>(seed) * 2654435761u + 1) {}
  int below(int end) {
    state_ = state_ * 1664525u + 1013904223u;
    return static_cast<int>((state_ >> 8) % static_cast<uint32_t>(end));
  }

 private:
  uint32_t state_;
};

template <class Body>
void onThreads(int count, const Body& body) {
  std::vector<std::thread> threads;
  for (int i = 0; i < count; ++i) threads.emplace_back(body, i);
  for (std::thread& thread : threads) thread.join();
}

using Clock = std::chrono::steady_clock;

void mixed(const char* file, int seconds) {
  const LoadedLibrary library(file);
  library->InitKVLWrapper();
  Results expected;
  {
    OwnFrame frame(smallWidth, smallHeight);
    expected = expectedResults(library, frame.get());
  }
  const Clock::time_point end = Clock::now() + std::chrono::seconds(seconds);
  std::atomic<long> calls = 0;
  onThreads(hostThreads, [&](int thread) {
    omp_set_num_threads(1 + thread % 3);
    OwnFrame frame(smallWidth, smallHeight);
    Random random(thread);
    do {
      const int call = random.below(mixed_call_count);
      check(expected, call, mixed_call(library.get(), call, frame.get()));
      ++calls;
    } while (Clock::now() < end);
  });
  std::printf("mixed: %ld calls from %d threads in %d s, %d of them wrong\n", calls.load(),
              hostThreads, seconds, g_wrong.load());
}

// In two rounds of three, all threads begin with the one-call resize, whose buffer and lock are made
// then; in one of these they initialise before it, all at once. In the third each begins elsewhere.
void first(const char* file, int rounds) {
  for (int round = 0; round < rounds; ++round) {
    const LoadedLibrary library(file);
    constexpr int callsEach = 4;
    struct Made {
      int call;
      uint64_t result;
    };
    std::vector<Made> made(hostThreads * callsEach);
    int resize = 0;
    while (std::string(mixed_call_name(resize)) != "shrink") ++resize;
    std::barrier together(hostThreads);
    onThreads(hostThreads, [&](int thread) {
      OwnFrame frame(smallWidth, smallHeight);
      const int from = round % 3 == 2 ? thread * 3 + round * 7 : resize;
      together.arrive_and_wait();
      if (round % 3 == 1) library->InitKVLWrapper();
      for (int i = 0; i < callsEach; ++i) {
        const int call = (from + i) % mixed_call_count;
        made[static_cast<size_t>(thread * callsEach + i)] = {
            call, mixed_call(library.get(), call, frame.get())};
      }
    });
    OwnFrame frame(smallWidth, smallHeight);
    const Results expected = expectedResults(library, frame.get());
    for (const Made& one : made) check(expected, one.call, one.result);
  }
  std::printf("first: %d loads, %d threads at once, %d calls wrong\n", rounds, hostThreads,
              g_wrong.load());
}

// The largest number of threads while it lives, its own not counted.
class ThreadWatch {
 public:
  ThreadWatch() : thread_([this] { run(); }) {}
  ~ThreadWatch() { stop(); }
  int stop() {
    stop_ = true;
    if (thread_.joinable()) thread_.join();
    return most_ - 1;
  }

 private:
  void run() {
    while (!stop_) most_ = std::max(most_.load(), thread_count());
  }
  std::atomic<bool> stop_ = false;
  std::atomic<int> most_ = 0;
  std::thread thread_;
};

// Where the host's region is the only one active, the library's are of one thread each: as many
// threads as the host asked for. Where it allows a second level, each has a team of its own.
void nested(const char* file) {
  constexpr int outer = 4, inner = 3;
  const LoadedLibrary library(file);
  library->InitKVLWrapper();
  OwnFrame own(smallWidth, smallHeight);
  const Results expected = expectedResults(library, own.get());
  omp_set_num_threads(inner);
  std::thread([] {}).join();  // a thread sanitizer has one of its own from the first thread on
  const int before = thread_count();
  for (const int levels : {1, 2}) {
    omp_set_max_active_levels(levels);
    ThreadWatch watch;
#pragma omp parallel num_threads(outer)
    {
      OwnFrame frame(smallWidth, smallHeight);
      Random random(omp_get_thread_num());
      for (int i = 0; i < 2 * mixed_call_count; ++i) {
        const int call = random.below(mixed_call_count);
        check(expected, call, mixed_call(library.get(), call, frame.get()));
      }
    }
    const int most = watch.stop();
    // Threads of an inner team may still be ending while those of the next ones start.
    const int bound = before - 1 + (levels == 1 ? outer : 3 * outer * inner);
    std::printf("nested: %d threads in calls, %d levels: at most %d threads of %d allowed\n", outer,
                levels, most, bound);
    if (most > bound) ++g_wrong;
  }
  // They end, or some run-times keep them, but no more than one call needed. A leak check that finds
  // threads older than the library's unloading crashes.
  omp_pause_resource_all(omp_pause_soft);
  const int kept = before - 1 + outer * inner;
  const Clock::time_point end = Clock::now() + std::chrono::seconds(20);
  while (thread_count() > kept && Clock::now() < end) std::this_thread::yield();
  if (thread_count() > kept) {
    std::fprintf(stderr, "threads_host: %d threads stay\n", thread_count());
    ++g_wrong;
  }
}

void soak(const char* file, int seconds, int32_t width, int32_t height) {
  // What the memory may grow by after the first rounds: the allocator's own affairs.
  constexpr long allowed = 8 * 1024;
  constexpr int threads = 2, warmUp = 3;
  const LoadedLibrary library(file);
  library->InitKVLWrapper();
  Results expected;
  {
    OwnFrame frame(width, height);
    expected = expectedResults(library, frame.get());
  }
  const Clock::time_point end = Clock::now() + std::chrono::seconds(seconds);
  int rounds = 0;
  long start = 0, last = 0, most = 0;
  bool more = true;
  // Memory is looked at while no call is under way.
  std::barrier together(threads, [&]() noexcept {
    last = resident_kilobytes();
    if (++rounds == warmUp) start = most = last;
    most = std::max(most, last);
    more = rounds <= warmUp || Clock::now() < end;
  });
  onThreads(threads, [&](int thread) {
    OwnFrame frame(width, height);
    Random random(thread);
    while (more) {
      for (int i = 0; i < mixed_call_count; ++i) {
        const int call = random.below(mixed_call_count);
        check(expected, call, mixed_call(library.get(), call, frame.get()));
      }
      together.arrive_and_wait();
    }
  });
  std::printf(
      "soak: %d calls on %d x %d in %d s, %d of them wrong; resident first %ld kB, last "
      "%ld kB, most %ld kB\n",
      rounds * threads * mixed_call_count, width, height, seconds, g_wrong.load(), start, last,
      most);
  if (most > start + allowed) {
    std::fprintf(stderr, "threads_host: more than %ld kB more\n", allowed);
    ++g_wrong;
  }
}

void once(const char* file) {
  const LoadedLibrary library(file);
  OwnFrame frame(smallWidth, smallHeight);
  for (const char* when : {"before", "after"}) {
    const Results expected = expectedResults(library, frame.get());
    omp_set_num_threads(2);
    for (int i = 0; i < mixed_call_count; ++i) {
      check(expected, i, mixed_call(library.get(), i, frame.get()));
    }
    std::printf("once: %d calls %s InitKVLWrapper, %d of them wrong\n", mixed_call_count, when,
                g_wrong.load());
    library->InitKVLWrapper();
  }
}

}  // namespace

int main(int argc, char** argv) {
  const std::string mode = argc > 2 ? argv[2] : "";
  const auto number = [&](int i) { return static_cast<int>(std::strtol(argv[i], nullptr, 10)); };
  if (mode == "mixed" && argc == 4) {
    mixed(argv[1], number(3));
  } else if (mode == "first" && argc == 4) {
    first(argv[1], number(3));
  } else if (mode == "nested" && argc == 3) {
    nested(argv[1]);
  } else if (mode == "soak" && argc == 6) {
    soak(argv[1], number(3), number(4), number(5));
  } else if (mode == "once" && argc == 3) {
    once(argv[1]);
  } else {
    std::fprintf(stderr,
                 "usage: threads_host LIBRARY mixed SECONDS | first ROUNDS | nested |\n"
                 "                            soak SECONDS WIDTH HEIGHT | once\n");
    return 2;
  }
  return g_wrong == 0 ? 0 : 1;
}
