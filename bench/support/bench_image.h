// What every benchmark shares: the image, the registration of a job and the check of its result.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "core/instruction_set.h"
#include "kvl/kvl.h"

namespace kvl::bench {

constexpr int width = 1920;
constexpr int height = 1080;

// Bytes that look like a photograph to a filter: smooth shapes, edges and grain. Rows are padded to
// 4 bytes.
std::vector<uint8_t> photoLike(int channels);

// "r2", "r10.5".
std::string radiusName(double radius);

BITMAPINFOHEADER header(uint16_t bitCount = 24);

// Times `call` under the name job/variant/who/threads:N, for 1 thread and for 2, in megapixels of
// 1920 x 1080 a second. `prepare` sets the thread count of whoever is measured.
void add(const std::string& job, const std::string& variant, const std::string& who,
         const std::function<void(int threads)>& prepare, const std::function<void()>& call);

// The same for a call into this library: once at its best level, as "kvl", and once at SSE4.1, as
// "kvl-sse41", where `levels` says that the two differ. Ends the program when the bytes of `result`
// after the call differ from those that the bodies of level `reference` give: a wrong result is not
// worth timing. (Where scalar and vector results differ by contract, that is InstructionSet::ssse3.)
void addKvl(const std::string& job, const std::string& variant, const std::function<void()>& call,
            const std::function<const std::vector<uint8_t>&()>& result,
            const std::function<void()>& reset = {}, bool levels = false,
            InstructionSet reference = InstructionSet::scalar);

#ifdef KVL_BENCH_OPENCV
void addOpenCv(const std::string& job, const std::string& variant,
               const std::function<void()>& call);
#endif

// A peer that knows no threads: `part` does one of `parts` bands of the image, each on a thread.
void addPeer(const std::string& job, const std::string& variant, const std::string& who,
             const std::function<void(int part, int parts)>& part);

}  // namespace kvl::bench
