// Resource URIs as clients spell them, and the patterns of subscriptions.
//
// Inside the emulator a resource has one name, its path, which always starts with "/". Clients may leave that
// slash out; what they are answered and pushed carries their own spelling again. Plain values, any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace ZoSensor {

struct Uri {
  std::string path;   // with the leading "/"
  bool slash = true;  // whether the client wrote it

  static Uri Parse(std::string_view spelled);
};

// The path in a client's spelling.
std::string Spell(std::string_view path, bool slash);

// Whether a resource may bear this path: no "*", which belongs to patterns.
bool IsPlainPath(std::string_view path);

// A URI, or a URI followed by "/*" for that resource and all below it; "*", "/*" and "//*" (all below "/") for all resources.
struct Pattern {
  std::string path;      // of the one resource, or of the subtree's top; empty for everything
  bool subtree = false;  // whether what lies below belongs to it
  bool slash = true;     // the spelling of its pushes

  // Nothing for a text with a "*" anywhere else.
  static std::optional<Pattern> Parse(std::string_view text);
  bool Matches(std::string_view candidate) const;
};

}  // namespace ZoSensor
