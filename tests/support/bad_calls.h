// Calls that an export must refuse: variations of a good one, after none of which a byte of what is
// watched may have changed.
#pragma once

#include <gtest/gtest.h>

#include <concepts>
#include <cstring>
#include <initializer_list>
#include <optional>
#include <tuple>
#include <type_traits>
#include <vector>

#include "support/test_image.h"

namespace kvl::test {

// Memory and what it held when the watch began.
class Watch {
 public:
  void add(const void* memory, size_t bytes) {
    const auto* at = static_cast<const uint8_t*>(memory);
    watched_.push_back({at, {at, at + bytes}});
  }
  void add(const TestImage& image) { add(image.bits(), image.bytes().size()); }

  void expectUnchanged(const std::string& what) const {
    for (size_t i = 0; i < watched_.size(); ++i) {
      const auto& [at, before] = watched_[i];
      expectBytes(before, {at, at + before.size()}, before.size() + 1, 1,
                  text(what, ", memory ", i));
    }
  }

 private:
  struct Memory {
    const uint8_t* at;
    std::vector<uint8_t> before;
  };
  std::vector<Memory> watched_;
};

template <class Result, class... Parameters>
class BadCalls {
 public:
  // `good` are the arguments of a call that would not be refused.
  explicit BadCalls(Result (*function)(Parameters...), std::type_identity_t<Parameters>... good)
      : function_(function), good_(good...) {}

  // Images, or a pointer and a number of bytes.
  template <std::same_as<TestImage>... Images>
  BadCalls& watch(const Images&... images) {
    (watch_.add(images), ...);
    return *this;
  }
  BadCalls& watch(const void* memory, size_t bytes) {
    watch_.add(memory, bytes);
    return *this;
  }
  // What the calls return from here on.
  BadCalls& expect(int32_t status) {
    status_ = status;
    return *this;
  }

  // Each of the arguments that are pointers is null in turn, or those of [first, end).
  void eachNull(size_t first = 0, size_t end = sizeof...(Parameters)) {
    eachNull(first, end, std::index_sequence_for<Parameters...>());
  }

  // The arguments of these indices become each of the values, or point to it.
  template <size_t... at, class Value>
  void with(std::initializer_list<Value> values) {
    size_t index = 0;
    for (const Value& value : values) {
      Value argument = value;
      Arguments changed = good_;
      (set(std::get<at>(changed), argument), ...);
      call(changed, text("value ", index++, " as argument", text(' ', at)...));
      if constexpr (std::is_same_v<Value, BITMAPINFOHEADER>) {
        EXPECT_EQ(std::memcmp(&argument, &value, sizeof value), 0) << "header " << index - 1;
      }
    }
  }

  // Argument `at`, a pointer, points to a copy of what it points to that one of `changes` has changed.
  template <size_t at, class... Changes>
  void withChanged(const Changes&... changes) {
    size_t index = 0;
    const auto one = [&](const auto& change) {
      auto changed = *std::get<at>(good_);
      change(changed);
      Arguments arguments = good_;
      std::get<at>(arguments) = &changed;
      call(arguments, text("change ", index++, " of argument ", at));
    };
    (one(changes), ...);
  }

  // Any other way to call.
  void call(const std::tuple<Parameters...>& arguments, const std::string& what) {
    if constexpr (std::is_integral_v<Result>) {
      const Result status = std::apply(function_, arguments);
      if (status_) {
        EXPECT_EQ(status, *status_) << what;
      }
    } else {
      std::apply(function_, arguments);
    }
    watch_.expectUnchanged(what);
  }

 private:
  using Arguments = std::tuple<Parameters...>;

  template <class Parameter, class Value>
  static void set(Parameter& parameter, Value& value) {
    if constexpr (std::is_pointer_v<Parameter> && !std::is_convertible_v<Value, Parameter>) {
      parameter = &value;
    } else {
      parameter = static_cast<Parameter>(value);
    }
  }

  template <size_t... at>
  void eachNull(size_t first, size_t end, std::index_sequence<at...>) {
    const auto makeNull = [&]<size_t i>(std::integral_constant<size_t, i>) {
      if constexpr (std::is_pointer_v<std::tuple_element_t<i, Arguments>>) {
        if (i >= first && i < end) with<i>({nullptr});
      }
    };
    (makeNull(std::integral_constant<size_t, at>()), ...);
  }

  Result (*function_)(Parameters...);
  Arguments good_;
  Watch watch_;
  std::optional<int32_t> status_;
};

}  // namespace kvl::test
