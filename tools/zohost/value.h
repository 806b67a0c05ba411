// A value of an item, owned by the host: what is left of an ioDataValue once its callback has returned.
//
// Threads: a plain value. Made on the plug-in's threads, read on the main thread.
// Invariant: the payload's alternative and the kind say the same thing; "invalid" is the empty payload.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "xhmi/iohandler.h"

namespace zohost {

class Value {
 public:
  Value() = default;  // invalid
  explicit Value(std::string text) : payload_(std::move(text)) {}
  explicit Value(bool boolean) : payload_(boolean) {}
  explicit Value(std::int64_t number) : payload_(number) {}
  explicit Value(std::uint64_t number) : payload_(number) {}
  explicit Value(double number) : payload_(number) {}

  // Copies the record and the text that it points to. An unknown type is taken as invalid.
  static Value FromRecord(const ioDataValue& record);

  // Reads what a person typed. Without a kind it is guessed: true and false, integers, unsigned ones beyond
  // 2^63-1, numbers with a fraction or an exponent, else a string. Raises UsageError when it does not fit.
  static Value Parse(std::string_view text, std::optional<enumtype> kind = std::nullopt);

  // The record for WriteItem; its text is borrowed from this value.
  ioDataValue ToRecord() const;

  enumtype Kind() const;
  // Doubles are the same when their bits are, so NaN equals itself.
  bool SameAs(const Value& other) const;
  // The value as a point of a curve; a boolean is 0 or 1, a string and an invalid value are none.
  std::optional<double> AsNumber() const;
  // The text for a person: one line without control characters. A double that is a widened float is shown as
  // the float, since that is all the precision it has: 0.1 rather than 0.10000000149011612. Of a string only
  // the first `bytes` are looked at.
  std::string ForPeople(std::size_t bytes = std::string::npos) const;
  // The text for a machine: exact, strings as they came (but valid UTF-8).
  std::string Exact() const;
  // The value as JSON. Numbers that JSON does not have become the strings "NaN", "Infinity" and "-Infinity".
  std::string Json() const;
  // Bytes that this value keeps alive, roughly.
  std::size_t Footprint() const;

 private:
  std::variant<std::monostate, std::string, bool, std::int64_t, std::uint64_t, double> payload_;
};

// "string", "bool", "int", "double", "uint", "invalid"
std::string_view KindName(enumtype kind);
std::optional<enumtype> KindFromName(std::string_view name);

}  // namespace zohost
