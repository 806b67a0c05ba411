#include "tools/zosensor/uri.h"

namespace ZoSensor {

Uri Uri::Parse(std::string_view spelled) {
  if (!spelled.empty() && spelled.front() == '/') {
    return {std::string(spelled), true};
  }
  return {"/" + std::string(spelled), false};
}

std::string Spell(std::string_view path, bool slash) {
  if (!slash) {
    path.remove_prefix(1);
  }
  return std::string(path);
}

bool IsPlainPath(std::string_view path) {
  return path.find('*') == std::string_view::npos;
}

std::optional<Pattern> Pattern::Parse(std::string_view text) {
  if (text == "*" || text == "/*") {
    return Pattern{"", true, true};
  }
  const bool subtree = text.ends_with("/*");
  if (subtree) {
    text.remove_suffix(2);
  }
  if (!IsPlainPath(text)) {
    return std::nullopt;
  }
  Uri uri = Uri::Parse(text);
  if (subtree && uri.path == "/") {  // below "/" lies everything
    uri.path.clear();
  }
  return Pattern{std::move(uri.path), subtree, uri.slash};
}

bool Pattern::Matches(std::string_view candidate) const {
  if (!subtree) {
    return candidate == path;
  }
  return candidate.starts_with(path) && (candidate.size() == path.size() || candidate[path.size()] == '/');
}

}  // namespace ZoSensor
