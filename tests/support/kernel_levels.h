// How many kernels of a table have bodies of their own at a level: a table that forgets to take one
// over gives the same bytes, only later.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>

#include "core/instruction_set.h"

namespace kvl::test {

// Replaced by SSE2, SSSE3, SSE4.1 and AVX2.
using Replaced = std::array<int, 4>;

// `kernels` gives a function, or a struct that holds nothing but functions.
template <class Kernels>
Replaced replaced(const Kernels& kernels) {
  const auto pointers = [&](size_t level) {
    const auto table = kernels(static_cast<InstructionSet>(level));
    std::array<uintptr_t, sizeof table / sizeof(uintptr_t)> values;
    std::memcpy(values.data(), &table, sizeof table);
    return values;
  };
  Replaced counts{};
  for (size_t i = 0; i < 4; ++i) {
    const auto before = pointers(i), after = pointers(i + 1);
    for (size_t k = 0; k < before.size(); ++k) counts[i] += before[k] != after[k];
  }
  return counts;
}

}  // namespace kvl::test
