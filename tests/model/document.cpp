#include "tests/model/document.h"

#include <array>
#include <charconv>
#include <type_traits>

namespace ZoModel {

namespace {

std::string Unescape(const std::string& segment) {
  std::string name;
  for (std::size_t i = 0; i < segment.size(); ++i) {
    const char next = i + 1 < segment.size() ? segment[i + 1] : '\0';
    if (segment[i] == '~' && (next == '0' || next == '1')) {
      name += next == '0' ? '~' : '/';
      ++i;
    } else {
      name += segment[i];
    }
  }
  return name;
}

std::string FloatText(double value) {
  std::array<char, 40> digits;
  const auto end = std::to_chars(digits.begin(), digits.end(), value).ptr;
  std::string text(digits.begin(), end);
  if (text.find_first_of(".e") == std::string::npos) {
    text += ".0";  // or it would read as an integer
  }
  return text;
}

std::string ListText(const Document::Elements& elements) {
  std::string text = "[";
  for (const Document& element : elements) {
    text += (text.size() > 1 ? "," : "") + element.Text();
  }
  return text + "]";
}

std::string ListText(const Document::Members& members) {
  std::string text = "{";
  for (const auto& [name, member] : members) {
    text += (text.size() > 1 ? "," : "") + Quote(name) + ":" + member.Text();
  }
  return text + "}";
}

const Document* Child(const Document& document, const std::string& name) {
  if (const auto* members = std::get_if<Document::Members>(&document.content)) {
    for (const auto& [key, member] : *members) {
      if (key == name) {
        return &member;
      }
    }
  } else if (const auto* elements = std::get_if<Document::Elements>(&document.content)) {
    for (std::size_t i = 0; i < elements->size(); ++i) {
      if (std::to_string(i) == name) {
        return &(*elements)[i];
      }
    }
  }
  return nullptr;
}

}  // namespace

Document::Document(Content content) : content(std::move(content)) {}
Document::Document(const Document&) = default;
Document::Document(Document&&) noexcept = default;
Document& Document::operator=(const Document&) = default;
Document& Document::operator=(Document&&) noexcept = default;
Document::~Document() = default;

bool Document::IsContainer() const {
  return std::holds_alternative<Elements>(content) || std::holds_alternative<Members>(content);
}

bool Document::IsEmpty() const {
  if (const auto* members = std::get_if<Members>(&content)) {
    return members->empty();
  }
  if (const auto* elements = std::get_if<Elements>(&content)) {
    return elements->empty();
  }
  return IsNull();
}

const Document* Document::Find(const Path& path) const {
  const Document* place = this;
  for (const std::string& name : path) {
    place = Child(*place, name);
    if (place == nullptr) {
      return nullptr;
    }
  }
  return place;
}

std::string Document::Text() const {
  return std::visit(
      [](const auto& value) -> std::string {
        using T = std::decay_t<decltype(value)>;
        if constexpr (std::is_same_v<T, std::monostate>) {
          return "null";
        } else if constexpr (std::is_same_v<T, bool>) {
          return value ? "true" : "false";
        } else if constexpr (std::is_same_v<T, double>) {
          return FloatText(value);
        } else if constexpr (std::is_same_v<T, std::string>) {
          return Quote(value);
        } else if constexpr (std::is_integral_v<T>) {
          return std::to_string(value);
        } else {
          return ListText(value);
        }
      },
      content);
}

Document Nest(const Path& path, Document value) {
  for (auto name = path.rbegin(); name != path.rend(); ++name) {
    value = Document(Document::Members{{*name, std::move(value)}});
  }
  return value;
}

Path ParsePointer(const std::string& text) {
  Path path;
  if (text.empty()) {
    return path;
  }
  std::size_t start = text.front() == '/' ? 1 : 0;
  for (;;) {
    const std::size_t end = text.find('/', start);
    path.push_back(Unescape(text.substr(start, end - start)));
    if (end == std::string::npos) {
      return path;
    }
    start = end + 1;
  }
}

std::string PointerText(const Path& path) {
  std::string text;
  for (const std::string& name : path) {
    text += '/';
    for (const char letter : name) {
      text += letter == '~' ? "~0" : letter == '/' ? "~1" : std::string(1, letter);
    }
  }
  return text;
}

std::string Quote(const std::string& text) {
  std::string quoted = "\"";
  for (const char letter : text) {
    if (letter == '"' || letter == '\\') {
      quoted += '\\';
    }
    quoted += letter == '\t' ? "\\t" : std::string(1, letter);
  }
  return quoted + "\"";
}

}  // namespace ZoModel
