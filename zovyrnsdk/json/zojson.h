// A JSON value.
//
// Payloads are read far more often than they change, so values are immutable and shared: copying a ZoJson,
// and taking a part of one with At, costs O(1) and no allocation. Set and Remove edit in place when nobody
// shares the value, else they first detach the containers that lie on the path; a copy never sees a later
// edit.
//
// Threads: like an int. Any number of threads may read copies of one value at once; one object that is
// written needs a lock.
// Nothing here recurses, destruction included: documents may nest as deep as memory allows.
// Errors: ZoJsonError, as each operation says; std::bad_alloc. An operation that raises leaves the value
// unchanged.
//
// Text keys are read as ZoJsonPointers: "/res/sub" and "res/sub" name the member "sub" of the member "res".
// To name a member literally use ZoJsonPointer::Member.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "zovyrnsdk/json/zojsonerror.h"
#include "zovyrnsdk/json/zojsonpointer.h"

class ZoJsonShapes;

class ZoJson {
 public:
  enum class Kind : std::uint8_t { Null, Boolean, Integer, Unsigned, Float, String, Array, Object };

  // Null, which is also the empty document.
  ZoJson() noexcept {}  // not defaulted, so that a constant one may be made without braces
  ZoJson(const ZoJson& other) noexcept {
    CopyBits(other);
    if (HoldsNode()) {
      AddReference();
    }
  }
  ZoJson(ZoJson&& other) noexcept {
    CopyBits(other);
    other.wide = Wide();
  }
  ZoJson& operator=(const ZoJson& other) noexcept {
    ZoJson copy(other);
    Swap(copy);
    return *this;
  }
  ZoJson& operator=(ZoJson&& other) noexcept {
    ZoJson taken(std::move(other));
    Swap(taken);
    return *this;
  }
  ~ZoJson() {
    if (HoldsNode()) {
      Release();
    }
  }

  // Parses a JSON text; the same as ParseString.
  explicit ZoJson(const std::string& text);
  explicit ZoJson(const char* text);

  // Strict RFC 8259: UTF-8 checked, nesting limited to 256, no number beyond a double's range, of duplicate
  // names the last wins (at the place of the first). What is too small for a double reads as 0; "-0" is a
  // float, so that the sign stays. ZoJsonError names the position (byte offset, line, column) and the reason.
  static ZoJson ParseString(std::string_view text);
  // The same for a text of unknown origin: a small text may describe a document many times its size. memory is what
  // reading it may cost at any time, in bytes and without the text; afterwards, what the document holds. Raises
  // ZoJsonTooLarge beyond that, and leaves memory as it is.
  static ZoJson ParseString(std::string_view text, std::size_t& memory);
  // The same, quicker where the objects of the text are like some that came before; shapes remembers them.
  static ZoJson ParseString(std::string_view text, std::size_t& memory, ZoJsonShapes& shapes);

  // A value of a C++ scalar or text. Integers keep their value and become Integer, or Unsigned above 2^63-1.
  // Texts are taken as they are: not parsed, and not checked, so one that is no UTF-8 is printed as it is.
  template <typename T>
  static ZoJson Of(const T& value) {
    if constexpr (std::is_same_v<T, bool>) {
      return FromBoolean(value);
    } else if constexpr (std::is_integral_v<T> && std::is_signed_v<T>) {
      return FromInteger(value);
    } else if constexpr (std::is_integral_v<T>) {
      return FromUnsigned(value);
    } else if constexpr (std::is_floating_point_v<T>) {
      return FromFloat(static_cast<double>(value));
    } else {
      return FromText(std::string_view(value));
    }
  }
  static ZoJson EmptyArray();
  static ZoJson EmptyObject();

  // Kinds. IsInteger: an integer that fits signed 64 bits. IsUnsigned: an integer that is not negative. So 5
  // is both, 2^63 is unsigned only, and 1.0 is a float and neither. GetKind gives Integer for what fits
  // signed 64 bits.
  Kind GetKind() const noexcept { return wide.kind; }
  bool IsNull() const noexcept { return GetKind() == Kind::Null; }
  bool IsBoolean() const noexcept { return GetKind() == Kind::Boolean; }
  bool IsInteger() const noexcept { return GetKind() == Kind::Integer; }
  bool IsUnsigned() const noexcept;
  bool IsFloat() const noexcept { return GetKind() == Kind::Float; }
  bool IsNumber() const noexcept { return IsInteger() || IsUnsigned() || IsFloat(); }
  bool IsString() const noexcept { return GetKind() == Kind::String; }
  bool IsArray() const noexcept { return GetKind() == Kind::Array; }
  bool IsObject() const noexcept { return GetKind() == Kind::Object; }
  bool IsPrimitive() const noexcept { return !IsArray() && !IsObject(); }

  // Null, {} or [].
  bool Empty() const noexcept { return IsNull() || (!IsPrimitive() && !HoldsNode()); }
  // Members or elements; 0 for anything else.
  std::size_t Size() const noexcept { return HoldsNode() && !IsString() ? wide.node->size : 0; }

  // The part at a pointer. Array elements are named by their index in decimal without leading zeros.
  // ZoJsonError names the pointer and why when it is not there.
  ZoJson At(std::string_view key) const;
  ZoJson At(const ZoJsonPointer& pointer) const;

  // Whether At would find something (a null counts).
  bool HasKey(std::string_view key) const;
  bool HasKey(const ZoJsonPointer& pointer) const;
  // What At gives a copy of, or null when there is nothing. Valid until this value is edited or destroyed.
  const ZoJson* Find(const ZoJsonPointer& pointer) const;

  // For who looks for one member in many documents of the same form: the place that an object has it at, and what is at
  // a place, provided that it is the member of that name. FindAt gives null where it is another one or there is none.
  static constexpr std::uint32_t noPlace = 0xFFFFFFFF;
  std::uint32_t PlaceOf(std::string_view member) const noexcept;
  const ZoJson* FindAt(std::uint32_t place, std::string_view member) const noexcept;
  // Objects that give the same number other than 0 have the same names at the same places. Only those have one that were
  // parsed with the names of others in mind (see ZoJsonShapes), and not after names came or went.
  std::uint64_t Shape() const noexcept;
  // What is at a place, whatever its name; null when there is nothing.
  const ZoJson* ElementAt(std::uint32_t place) const noexcept;

  // Puts a value at a pointer. Missing containers on the way are made, as objects, also for numeric segments;
  // a scalar in the way is replaced by an object; an array in the way is indexed ("-" or its length appends),
  // and ZoJsonError is raised for a segment that is no index of it. The empty pointer replaces the whole
  // value.
  void Set(std::string_view key, ZoJson value);
  void Set(const ZoJsonPointer& pointer, ZoJson value);
  template <typename T>
  requires(!std::is_convertible_v<const T&, ZoJson>) void Set(std::string_view key, const T& value) {
    Set(key, Of(value));
  }
  template <typename T>
  requires(!std::is_convertible_v<const T&, ZoJson>) void Set(const ZoJsonPointer& pointer, const T& value) {
    Set(pointer, Of(value));
  }

  // Takes a member or element away (later elements move up); false when it is not there. The empty pointer
  // makes the whole value null. Costs O(1) on average for a member, wherever it is, and for an element near
  // either end of its array; other elements move, half of the array at the most.
  bool Remove(std::string_view key);
  bool Remove(const ZoJsonPointer& pointer);

  // The value as T: bool, int, long, long long, their unsigned kinds, float, double or std::string. Numbers
  // convert between kinds and saturate where the value does not fit (a fraction is cut, NaN gives 0), a
  // boolean reads as 0 or 1, a number as bool is true unless 0 or NaN. NaN and infinities stay what they are
  // in a float. Anything else raises ZoJsonError.
  template <typename T>
  T Get() const;

  // The document as one object without depth: each leaf under the text of its pointer, as a literal member
  // name. Only objects that have members are descended into; arrays and {} are leaves. A scalar or empty
  // document gives one entry at the empty name. Unflatten is the inverse and makes objects, also of numeric
  // segments. It takes flat documents that Flatten does not give, too: names are read like text keys, entries
  // are put in their order, and where one lies below the leaf of another the later wins (objects merge).
  // Anything but an object that has members comes back as it is.
  ZoJson Flatten() const;
  ZoJson Unflatten() const;

  // Compact text, members in the order of insertion. Doubles in the shortest form that reads back the same,
  // which never looks like an integer: a whole one has ".0", or from 1e16 on perhaps an exponent. ZoJsonError
  // for NaN and infinities.
  std::string ToString() const;

  // Deep comparison. Integers compare by value, members without regard to order, 1 and 1.0 differ. Floats
  // compare as C++ does (0.0 equals -0.0), but NaN equals NaN, so that a value equals its copies.
  friend bool operator==(const ZoJson& a, const ZoJson& b);

 private:
  friend class ZoJsonIterator;
  friend struct ZoJsonAccess;  // the way in for the parser, the printer and the edits; see zojsonnode.h
  struct StringNode;
  struct ArrayNode;
  struct ObjectNode;

  // How each shared node begins; the rest is in zojsonnode.h.
  struct Node {
    Node(Kind kind, std::uint32_t size) noexcept : references(1), kind(kind), size(size) {}

    // The number of values that refer to this node. In a dead node: the next one on the list of those to take
    // apart.
    std::atomic<std::uintptr_t> references;
    const Kind kind;
    std::uint32_t size;  // bytes, elements or living members
  };

  // What a value is made of: 16 bytes. A scalar stands in `wide`; a text of up to fourteen bytes in `brief`,
  // its length in `form`; everything longer, and every container that has members, in a node that values
  // share. Empty containers have no node. Both structures begin alike, so kind and form may be read through
  // either.
  static constexpr std::size_t shortTextMax = 14;
  static constexpr std::uint8_t inNode = 0xFF;
  struct Wide {
    Kind kind = Kind::Null;
    std::uint8_t form = 0;
    union {
      bool boolean;
      std::int64_t integer;
      std::uint64_t natural;
      double number;
      Node* node = nullptr;
    };
  };
  struct Brief {
    Kind kind;
    std::uint8_t form;
    char text[shortTextMax];
  };

  static ZoJson FromBoolean(bool value) noexcept;
  static ZoJson FromInteger(std::int64_t value) noexcept;
  static ZoJson FromUnsigned(std::uint64_t value) noexcept;
  static ZoJson FromFloat(double value) noexcept;
  static ZoJson FromText(std::string_view value);

  bool HoldsNode() const noexcept { return wide.form == inNode; }
  void CopyBits(const ZoJson& other) noexcept {
    std::memcpy(static_cast<void*>(this), static_cast<const void*>(&other), sizeof(ZoJson));
  }
  void Swap(ZoJson& other) noexcept {
    Wide bits;
    std::memcpy(static_cast<void*>(&bits), static_cast<const void*>(this), sizeof(ZoJson));
    CopyBits(other);
    std::memcpy(static_cast<void*>(&other), static_cast<const void*>(&bits), sizeof(ZoJson));
  }
  void AddReference() const noexcept { wide.node->references.fetch_add(1, std::memory_order_relaxed); }
  void Release() noexcept;

  union {
    Wide wide = {};
    Brief brief;
  };
};
