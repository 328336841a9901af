// 32-bit arithmetic with the results that x86 gives where C++ defines none.
#pragma once

#include <cstdint>

namespace kvl {

constexpr int32_t wrap(int64_t value) {
  return static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint64_t>(value)));
}

constexpr int32_t wrappingProduct(int32_t a, int32_t b) {
  return wrap(int64_t{a} * b);
}

// Towards zero; `b` is not 0.
constexpr int32_t wrappingQuotient(int32_t a, int32_t b) {
  return wrap(int64_t{a} / b);
}

// Towards zero; INT32_MIN for what does not fit and for not-a-number.
template <class Real>
constexpr int32_t truncateToInt(Real value) {
  constexpr Real limit = 2147483648;
  return value < limit && value > -limit - 1 ? static_cast<int32_t>(value) : INT32_MIN;
}

}  // namespace kvl
