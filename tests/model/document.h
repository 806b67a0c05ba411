// A JSON document for the model: a plain tree that is copied whole and searched from its root.
//
// It knows nothing of ZoJson and its shared values, so the two can be compared. A plain value.
#pragma once

#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace ZoModel {

using Path = std::vector<std::string>;

struct Document {
  using Members = std::vector<std::pair<std::string, Document>>;
  using Elements = std::vector<Document>;
  // Unsigned is for what does not fit the signed one.
  using Content = std::variant<std::monostate, bool, long long, unsigned long long, double, std::string,
                               Elements, Members>;

  Document() = default;
  Document(Content content);
  // Not inline: g++ 12 takes parts of a variant that another kind has replaced for uninitialised.
  Document(const Document&);
  Document(Document&&) noexcept;
  Document& operator=(const Document&);
  Document& operator=(Document&&) noexcept;
  ~Document();

  bool IsNull() const { return std::holds_alternative<std::monostate>(content); }
  bool IsContainer() const;
  // Null, or a container that holds nothing.
  bool IsEmpty() const;
  // Null where the path leads nowhere.
  const Document* Find(const Path& path) const;
  // Compact JSON.
  std::string Text() const;

  friend bool operator==(const Document&, const Document&) = default;

  Content content;
};

// A document that holds value at the end of path and nothing else.
Document Nest(const Path& path, Document value);

// The segments of a pointer's text: a leading "/" may be left out, "~0" and "~1" stand for "~" and "/".
Path ParsePointer(const std::string& text);
// The other way, every segment with its "/".
std::string PointerText(const Path& path);

// Text as JSON writes it.
std::string Quote(const std::string& text);

}  // namespace ZoModel
