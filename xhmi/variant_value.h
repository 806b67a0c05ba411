// The host framework's variant, as the plug-in uses it: a kind code and a payload. Scalars lie at the second 8-byte word,
// a text behind them.
//
// Threads: a plain value; give each thread its own, or lock.
// Invariant: scalar and text are kept apart, so storing a scalar over a string leaves the string whole and
// the kind unchanged. Readers that know the value's type better than the kind (an item's `type`) read the
// payload by that type.
#pragma once

#include <bit>
#include <cstdint>
#include <string>
#include <type_traits>
#include <utility>

#include "xhmi/iohandler.h"

namespace xhmi {

class variant_value {
 public:
  // The empty variant: kind 5, payload 0.
  variant_value() = default;
  explicit variant_value(std::string text) : kind_(enumtype_string), text_(std::move(text)) {}
  explicit variant_value(const char* text) : variant_value(std::string(text)) {}
  explicit variant_value(bool value) : kind_(enumtype_bool), scalar_(value ? 1 : 0) {}
  explicit variant_value(double value)
      : kind_(enumtype_double), scalar_(std::bit_cast<std::uint64_t>(value)) {}
  // Any other integer: signed ones become kind 2, unsigned ones kind 4.
  template <typename Integer>
  requires std::is_integral_v<Integer>
  explicit variant_value(Integer value)
      : kind_(std::is_signed_v<Integer> ? enumtype_int64 : enumtype_uint64),
        scalar_(static_cast<std::uint64_t>(static_cast<std::int64_t>(value))) {
    if constexpr (!std::is_signed_v<Integer>) {
      scalar_ = static_cast<std::uint64_t>(value);
    }
  }

  enumtype kind() const { return kind_; }

  bool boolean() const { return (scalar_ & 0xff) != 0; }
  std::int64_t int64() const { return static_cast<std::int64_t>(scalar_); }
  std::uint64_t uint64() const { return scalar_; }
  double float64() const { return std::bit_cast<double>(scalar_); }
  const std::string& text() const { return text_; }

  // Overwrite the payload in place and keep the kind. The boolean touches the low byte alone.
  void store_boolean(bool value) { scalar_ = (scalar_ & ~std::uint64_t{0xff}) | (value ? 1u : 0u); }
  void store_int64(std::int64_t value) { scalar_ = static_cast<std::uint64_t>(value); }
  void store_uint64(std::uint64_t value) { scalar_ = value; }
  void store_float64(double value) { scalar_ = std::bit_cast<std::uint64_t>(value); }

  // Compares kind, scalar and text. Doubles compare by their bits.
  friend bool operator==(const variant_value&, const variant_value&) = default;

 private:
  enumtype kind_ = enumtype_invalid;
  std::uint64_t scalar_ = 0;
  std::string text_;
};

}  // namespace xhmi
