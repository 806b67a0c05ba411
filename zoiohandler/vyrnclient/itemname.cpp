// The grammar of item names: RESOURCE [ "#" FRAGMENT ].
#include <algorithm>
#include <string_view>

#include "zoiohandler/vyrnclient/itemmanager.h"

namespace ZoIO {

const ItemInfo ItemManager::CreateItem(const std::string& name) {
  try {
    ItemInfo info;
    info.name = name;
    const std::size_t hash = name.find('#');
    if (hash == std::string::npos) {
      info.uri = name;
      info.subscriptionUri = name + "/*";
      info.pointer = ZoJsonPointer(name);
      return info;
    }
    info.uri = name.substr(0, hash);
    // The search for the first segment's end is not limited to the resource: "res#/x" gives "res/*".
    const std::size_t slash = name.find('/', 1);
    info.subscriptionUri = (slash == std::string::npos ? std::string() : name.substr(0, slash + 1)) + "*";
    Replace(info.subscriptionUri, "#", "");
    std::string fragment = name.substr(hash + 1);
    info.endpoint = GetEndpoint(fragment);
    Replace(fragment, "%20", " ");
    info.pointer = ZoJsonPointer(fragment);
    return info;
  } catch (const std::exception&) {
    throw ItemError("Invalid identifier.");
  }
}

ZoJson ItemManager::GetEndpoint(const std::string& fragment) {
  constexpr std::string_view separators = "/ \t\n\v\f\r";  // blanks of the host's locale do not count
  std::string key;
  std::size_t end = 0;
  for (std::size_t begin; (begin = fragment.find_first_not_of(separators, end)) != std::string::npos;) {
    end = std::min(fragment.find_first_of(separators, begin), fragment.size());
    std::string token = fragment.substr(begin, end - begin);
    Replace(token, "%20", " ");
    key += "/" + token;
  }
  ZoJson result;
  result.Set(key, 0);
  return result;
}

void ItemManager::Replace(std::string& text, const std::string& from, const std::string& to) {
  std::string result;
  std::size_t start = 0;
  for (std::size_t found; (found = text.find(from, start)) != std::string::npos;
       start = found + from.size()) {
    result.append(text, start, found - start).append(to);
  }
  text = result.append(text, start);
}

}  // namespace ZoIO
