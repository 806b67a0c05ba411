#include "zovyrnsdk/json/zojsonparser.h"

// The parser's few compiled parts are taken in here as inline functions, so that no Boost library is linked
// and a program that brings its own copy of them meets no second definition.
#define BOOST_ALL_NO_LIB
#define BOOST_JSON_STATIC_LINK
#define BOOST_JSON_DECL inline
#include <algorithm>
#include <array>
#include <boost/json/basic_parser_impl.hpp>
#include <boost/json/detail/impl/default_resource.ipp>
#include <boost/json/detail/impl/except.ipp>
#include <boost/json/detail/impl/stack.ipp>
#include <boost/json/impl/error.ipp>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <limits>
#include <numeric>
#include <optional>
#include <string>
#include <system_error>
#include <utility>

#include "zovyrnsdk/json/zojsonhash.h"
#include "zovyrnsdk/json/zojsonnode.h"
#include "zovyrnsdk/json/zojsonstack.h"

namespace {

using boost::json::error;
using Error = boost::json::error_code;
using View = boost::json::string_view;
using Access = ZoJsonAccess;

constexpr std::size_t depthMax = 256;

bool IsDigit(char c) noexcept {
  return c >= '0' && c <= '9';
}

// Whether a number that no double holds is so because it is too small.
bool IsTiny(std::string_view number) noexcept {
  const std::size_t mantissaEnd = std::min(number.find_first_of("eE"), number.size());
  const std::string_view mantissa = number.substr(0, mantissaEnd);
  const auto point = static_cast<std::int64_t>(std::min(mantissa.find('.'), mantissaEnd));
  const auto first = static_cast<std::int64_t>(mantissa.find_first_of("123456789"));
  std::int64_t exponent = 0;
  if (mantissaEnd < number.size()) {
    const char* digits = number.data() + mantissaEnd + (number[mantissaEnd + 1] == '+' ? 2 : 1);
    std::from_chars(digits, number.data() + number.size(), exponent);
  }
  // Such a number is beyond the range by far more than one digit.
  return point - first + exponent < 0;
}

// The exact value of a number of at most so many digits, with a point and no exponent, in a fraction of the general way's time: the
// digits as an integer and the power of ten are doubles themselves then, and one division rounds once.
std::optional<double> SimpleNumber(std::string_view number) noexcept {
  constexpr std::size_t digitsMax = 15;
  constexpr std::array<double, digitsMax + 1> powers = {1e0, 1e1, 1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                                        1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};
  const bool negative = number.front() == '-';
  number.remove_prefix(negative ? 1 : 0);
  if (number.size() > digitsMax + 1) {  // with the point
    return std::nullopt;
  }
  const char* at = number.data();
  const char* const end = at + number.size();
  std::int64_t digits = 0;
  for (; at != end && IsDigit(*at); ++at) {
    digits = digits * 10 + (*at - '0');
  }
  if (at == end || *at != '.') {
    return std::nullopt;
  }
  const char* const fraction = ++at;
  for (; at != end && IsDigit(*at); ++at) {
    digits = digits * 10 + (*at - '0');
  }
  if (at != end) {
    return std::nullopt;
  }
  const double value = static_cast<double>(digits) / powers[static_cast<std::size_t>(end - fraction)];
  return negative ? -value : value;
}

// Takes the parser's events and builds the document from the leaves up: finished values wait on a stack until
// their container ends, which then gets a node of exactly the right size.
class Builder {
 public:
  static constexpr std::size_t max_array_size = static_cast<std::size_t>(-1);
  static constexpr std::size_t max_object_size = static_cast<std::size_t>(-1);
  static constexpr std::size_t max_string_size = static_cast<std::size_t>(-1);
  static constexpr std::size_t max_key_size = static_cast<std::size_t>(-1);

  Builder(std::size_t memory, std::size_t sourceSize, ZoJsonShapes* shapes) noexcept
      : sourceSize(sourceSize), shapes(shapes), budget(memory) {}
  Builder(const Builder&) = delete;
  Builder& operator=(const Builder&) = delete;
  ~Builder() {
    ZoJson* left = values.All();
    for (std::size_t i = 0; i < values.Size(); ++i) {
      left[i].~ZoJson();
    }
  }

  ZoJson Result() noexcept { return std::move(*values.Top(1)); }
  // What the nodes made so far cost.
  std::size_t Held() const noexcept { return held; }
  // Where the number begins that was refused; null when none was.
  const char* RefusedNumber() const noexcept { return refusedNumber; }

  bool on_document_begin(Error&) noexcept { return true; }
  bool on_document_end(Error&) noexcept { return true; }
  bool on_array_begin(Error&) noexcept { return true; }
  bool on_object_begin(Error&) noexcept { return true; }

  bool on_array_end(std::size_t count, Error&) {
    if (count == 0) {
      return Push(ZoJson::EmptyArray());
    }
    Hold(Access::ArrayNode::BytesFor(count));
    ZoJson made = Access::NewArray(count);
    auto& array = Access::Array(made);
    Access::Relocate(array.Elements(), values.Top(count), count);
    array.size = static_cast<std::uint32_t>(count);
    values.Drop(count);
    return Push(std::move(made));
  }

  bool on_object_end(std::size_t count, Error&) {
    if (count == 0) {
      return Push(ZoJson::EmptyObject());
    }
    const std::uint32_t* keySize = keySizes.Top(count);
    const std::size_t keyBytes = std::accumulate(keySize, keySize + count, std::size_t{0});
    Hold(Access::ObjectNode::BytesFor(count, keyBytes));
    ZoJson made =
        shapes != nullptr && count >= shapedMin ? MakeShaped(count, keyBytes) : MakePlain(count, keyBytes);
    // All moved from, which leaves nulls: nothing to destroy.
    values.Drop(count);
    keySizes.Drop(count);
    names.Drop(keyBytes);
    return Push(std::move(made));
  }

  bool on_key_part(View part, std::size_t, Error&) {
    AddName(part);
    return true;
  }

  bool on_key(View part, std::size_t size, Error&) {
    AddName(part);
    *keySizes.Room(1) = static_cast<std::uint32_t>(size);
    keySizes.Grow(1);
    return true;
  }

  bool on_string_part(View part, std::size_t, Error&) {
    Gather(part);
    return true;
  }

  bool on_string(View part, std::size_t size, Error&) {
    if (size > Access::shortTextMax) {
      Hold(size);
    }
    if (part.size() == size) {
      return Push(Access::FromText({part.data(), part.size()}));
    }
    Gather(part);
    Push(Access::FromText(text));
    budget.Give(text.size());
    text.clear();
    if (text.capacity() > large) {
      std::string().swap(text);
    }
    return true;
  }

  bool on_number_part(View, Error&) noexcept { return true; }  // only of texts that come in pieces

  bool on_int64(std::int64_t integer, View number, Error&) {
    // An integer has no negative zero, and whoever wrote "-0" had one: it stays a float.
    return Push(integer == 0 && number.front() == '-' ? Access::FromFloat(-0.0)
                                                      : Access::FromInteger(integer));
  }

  bool on_uint64(std::uint64_t natural, View, Error&) { return Push(Access::FromUnsigned(natural)); }

  // The parser's own conversion is not exact; the text is read once more.
  bool on_double(double, View number, Error& failure) {
    if (const auto simple = SimpleNumber({number.data(), number.size()})) {
      return Push(Access::FromFloat(*simple));
    }
    double exact = 0;
    const auto [end, status] = std::from_chars(number.data(), number.data() + number.size(), exact);
    if (status == std::errc::result_out_of_range) {
      if (!IsTiny({number.data(), number.size()})) {
        refusedNumber = number.data();
        failure = error::exponent_overflow;
        return false;
      }
      exact = number.front() == '-' ? -0.0 : 0.0;
    }
    return Push(Access::FromFloat(exact));
  }

  bool on_bool(bool boolean, Error&) { return Push(Access::FromBoolean(boolean)); }
  bool on_null(Error&) { return Push(ZoJson()); }
  bool on_comment_part(View, Error&) noexcept { return true; }  // comments are refused before
  bool on_comment(View, Error&) noexcept { return true; }

 private:
  // Of the object that ends, the members are on top of the stacks.
  ZoJson MakePlain(std::size_t count, std::size_t keyBytes) {
    ZoJson made = Access::NewObject(count, keyBytes);
    auto& object = Access::Object(made);
    std::memcpy(object.Keys(), names.Top(keyBytes), keyBytes);
    object.AdoptAll(keySizes.Top(count), values.Top(count), count);
    return made;
  }

  ZoJson MakeShaped(std::size_t count, std::size_t keyBytes) {
    const char* name = names.Top(keyBytes);
    const std::uint64_t hash = ZoJsonHash({name, keyBytes}) + count;
    const ZoJson* shape = shapes->Find(hash);
    if (shape != nullptr && Access::Object(*shape).HasNames({name, keyBytes}, keySizes.Top(count), count)) {
      return Access::Adopt(Access::ObjectNode::MakeLike(Access::Object(*shape), values.Top(count)));
    }
    ZoJson made = MakePlain(count, keyBytes);
    if (made.Size() == count) {  // no name twice
      shapes->Note(hash, made);
    }
    return made;
  }

  void Hold(std::size_t bytes) {
    budget.Take(bytes + allocation);
    held += bytes + allocation;
  }

  void Gather(View part) {
    budget.Take(part.size());
    if (text.capacity() < large && text.size() + part.size() >= large) {
      // All that it may become, once: growing step by step would hold it twice. What stays unused costs no memory.
      text.reserve(sourceSize);
    }
    text.append(part.data(), part.size());
  }

  bool Push(ZoJson&& value) {
    new (values.Room(1)) ZoJson(std::move(value));
    values.Grow(1);
    return true;
  }

  void AddName(View part) {
    std::memcpy(names.Room(part.size()), part.data(), part.size());
    names.Grow(part.size());
  }

  static constexpr std::size_t allocation = 16;  // what a block costs besides its bytes, about

  static constexpr std::size_t large = std::size_t{1} << 20;
  static constexpr std::size_t shapedMin = 3;  // fewer names are hashed more quickly than they are found

  const std::size_t sourceSize;
  ZoJsonShapes* const shapes;
  ZoJsonBudget budget;
  std::size_t held = 0;
  ZoJsonStack<ZoJson, 64> values{&budget};
  ZoJsonStack<std::uint32_t, 64> keySizes{&budget};
  ZoJsonStack<char, 1024> names{&budget};  // of all open objects, one behind the other
  std::string text;                        // a string with escapes, as far as it has come
  const char* refusedNumber = nullptr;
};

std::string Position(std::string_view text, std::size_t offset) {
  std::size_t line = 1;
  std::size_t column = 1;
  for (const char c : text.substr(0, offset)) {
    if (c == '\n') {
      ++line;
      column = 1;
    } else if ((static_cast<unsigned char>(c) & 0xC0U) != 0x80U) {
      ++column;
    }
  }
  return "byte " + std::to_string(offset) + " (line " + std::to_string(line) + ", column " +
         std::to_string(column) + ")";
}

std::string Unexpected(std::string_view text, std::size_t offset) {
  if (offset >= text.size()) {
    return "the text ends too early";
  }
  const auto byte = static_cast<unsigned char>(text[offset]);
  if (byte >= 0x80) {
    return "invalid UTF-8, or a character beyond ASCII outside of a string";
  }
  if (byte < 0x20 || byte == 0x7F) {
    return "unexpected control character " + std::to_string(byte);
  }
  return std::string("unexpected '") + text[offset] + "'";
}

// Whether the text before the offset ends with the escape of the first half of a surrogate pair.
bool IsBehindHalfPair(std::string_view text, std::size_t offset) noexcept {
  constexpr std::size_t escapeSize = 6;
  if (offset < escapeSize || offset > text.size()) {
    return false;
  }
  const std::string_view escape = text.substr(offset - escapeSize, escapeSize);
  return escape.starts_with("\\u") && (escape[2] == 'd' || escape[2] == 'D') &&
         std::string_view("89abAB").find(escape[3]) != std::string_view::npos;
}

std::string Reason(const Error& failure, std::string_view text, std::size_t offset) {
  if (failure == error::incomplete) {
    return "the text ends too early";
  }
  if (failure == error::too_deep) {
    return "nested deeper than " + std::to_string(depthMax) + " levels";
  }
  if (failure == error::exponent_overflow) {
    return "a number beyond the range of a double";
  }
  // Found out at the half itself, right behind it, behind a backslash, or behind another escape.
  if (failure == error::illegal_leading_surrogate || failure == error::illegal_trailing_surrogate ||
      IsBehindHalfPair(text, offset) || IsBehindHalfPair(text, offset - 1) ||
      IsBehindHalfPair(text, offset - 6)) {
    return "half of a surrogate pair";
  }
  if (failure == error::expected_hex_digit) {
    return Unexpected(text, offset) + " in place of a hexadecimal digit";
  }
  return Unexpected(text, offset);
}

// One run of the parser over a text.
class Attempt {
 public:
  Attempt(std::string_view text, std::size_t memory, ZoJsonShapes* shapes)
      : text(text), parser(Options(), memory, text.size(), shapes) {
    offset = parser.write_some(false, text.data(), text.size(), failure);
  }

  bool Succeeded() const noexcept { return !failure && offset == text.size(); }
  ZoJson Result(std::size_t& memory) noexcept {
    memory = parser.handler().Held();
    return parser.handler().Result();
  }
  // The parser itself has refused an exponent, without a look at what stands before it.
  bool RefusedExponent() const noexcept {
    return failure == error::exponent_overflow && parser.handler().RefusedNumber() == nullptr;
  }
  [[noreturn]] void Raise() const {
    const char* number = parser.handler().RefusedNumber();
    const std::size_t at = number == nullptr ? offset : static_cast<std::size_t>(number - text.data());
    throw ZoJsonError("JSON text, " + Position(text, at) + ": " + Reason(failure, text, at));
  }

 private:
  static boost::json::parse_options Options() noexcept {
    boost::json::parse_options options;
    options.max_depth = depthMax;
    return options;
  }

  std::string_view text;
  boost::json::basic_parser<Builder> parser;
  Error failure;
  std::size_t offset = 0;
};

// Makes exponents that do not fit an int smaller, though still beyond every double. The text keeps its
// length, so that positions stay right.
std::string TameExponents(std::string_view original) {
  constexpr std::size_t digitsMax = 9;
  std::string text(original);
  bool inString = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (inString && text[i] == '\\') {
      ++i;
    } else if (text[i] == '"') {
      inString = !inString;
    } else if (!inString && (text[i] == 'e' || text[i] == 'E')) {
      std::size_t begin = i + 1;
      while (begin < text.size() && (text[begin] == '+' || text[begin] == '-' || text[begin] == '0')) {
        ++begin;
      }
      std::size_t end = begin;
      while (end < text.size() && IsDigit(text[end])) {
        ++end;
      }
      if (end - begin > digitsMax) {
        std::fill(text.begin() + static_cast<std::ptrdiff_t>(begin),
                  text.begin() + static_cast<std::ptrdiff_t>(end - digitsMax), '0');
        std::fill_n(text.begin() + static_cast<std::ptrdiff_t>(end - digitsMax), digitsMax, '9');
      }
      i = end - 1;
    }
  }
  return text;
}

}  // namespace

ZoJson ParseJson(std::string_view text) {
  std::size_t unlimited = std::numeric_limits<std::size_t>::max();
  return ParseJson(text, unlimited, nullptr);
}

ZoJson ParseJson(std::string_view text, std::size_t& memory, ZoJsonShapes* shapes) {
  // The parser counts the digits of a number in an int.
  if (text.size() > static_cast<std::size_t>(std::numeric_limits<int>::max())) {
    throw ZoJsonError("JSON text: larger than 2 GiB");
  }
  std::optional<Attempt> attempt(std::in_place, text, memory, shapes);
  if (!attempt->Succeeded() && attempt->RefusedExponent()) {
    attempt.reset();
    if (text.size() > memory) {
      throw ZoJsonTooLarge("JSON text: the document is too large");
    }
    const std::string tamed = TameExponents(text);
    Attempt second(tamed, memory - text.size(), shapes);
    if (!second.Succeeded()) {
      second.Raise();
    }
    return second.Result(memory);
  }
  if (!attempt->Succeeded()) {
    attempt->Raise();
  }
  return attempt->Result(memory);
}
