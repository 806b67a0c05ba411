#include "tools/zohost/tags.h"

#include <fmt/format.h>

#include <boost/json.hpp>

#include "tools/zohost/text.h"

namespace zohost {
namespace {

namespace json = boost::json;

constexpr std::size_t deepest = 256;

json::value Parse(std::string_view text) {
  json::parse_options options;
  options.max_depth = deepest;
  return json::parse(json::string_view(text.data(), text.size()), {}, options);
}

std::string_view View(const json::string& text) {
  return {text.data(), text.size()};
}

// As in a JSON pointer, and a space as "%20".
std::string Escaped(std::string_view name) {
  std::string segment;
  for (const char character : name) {
    switch (character) {
      case '~':
        segment += "~0";
        break;
      case '/':
        segment += "~1";
        break;
      case ' ':
        segment += "%20";
        break;
      default:
        segment += character;
    }
  }
  return segment;
}

// The value as the plug-in delivers it: a number with a fraction has the precision of a float, null is no
// value.
Value Delivered(const json::value& leaf) {
  switch (leaf.kind()) {
    case json::kind::bool_:
      return Value(leaf.get_bool());
    case json::kind::int64:
      return Value(leaf.get_int64());
    case json::kind::uint64:
      return Value(leaf.get_uint64());
    case json::kind::double_:
      return Value(static_cast<double>(static_cast<float>(leaf.get_double())));
    case json::kind::string:
      return Value(std::string(View(leaf.get_string())));
    default:
      return Value();
  }
}

// Recursive: the depth was limited when the text was parsed.
void Collect(const json::value& node, const std::string& item, bool nameable, std::vector<Tag>& tags) {
  if (const json::object* object = node.if_object()) {
    for (const auto& member : *object) {
      const std::string_view name(member.key().data(), member.key().size());
      Collect(member.value(), item + "/" + Escaped(name),
              nameable && name.find("%20") == std::string_view::npos, tags);
    }
  } else if (const json::array* array = node.if_array()) {
    for (std::size_t index = 0; index < array->size(); ++index) {
      Collect((*array)[index], fmt::format("{}/{}", item, index), nameable, tags);
    }
  } else {
    tags.push_back({item, Delivered(node), nameable});
  }
}

std::vector<std::string> ListedResources(const json::value& payload) {
  std::vector<std::string> resources;
  const json::object* object = payload.if_object();
  const json::value* list = object == nullptr ? nullptr : object->if_contains("resources");
  if (list != nullptr && list->is_array()) {
    for (const json::value& entry : list->get_array()) {
      if (entry.is_string()) {
        resources.emplace_back(View(entry.get_string()));
      }
    }
  }
  return resources;
}

// "data" of the response is JSON text again: the sensor's answer, or the text of what went wrong.
json::value SensorAnswer(std::string_view response) {
  return Parse(View(Parse(response).at("data").as_string()));
}

}  // namespace

ResourceAnswer TakeApart(const std::string& uri, std::string_view response) {
  ResourceAnswer answer;
  try {
    const json::value document = SensorAnswer(response);
    if (const json::string* text = document.if_string()) {
      answer.error = View(*text);
      return answer;
    }
    const json::object* members = document.if_object();
    if (members == nullptr || members->empty()) {
      answer.error = "The sensor gave no answer.";
      return answer;
    }
    if (const json::value* status = members->if_contains("status")) {
      answer.status = status->to_number<int>();
    } else {
      answer.status = 1;  // the simulator's answers have none
    }
    if (const json::value* error = members->if_contains("error"); error != nullptr && error->is_string()) {
      answer.error = View(error->get_string());
    }
    if (const json::value* payload = members->if_contains("payload");
        payload != nullptr && answer.status == 1) {
      answer.resources = ListedResources(*payload);
      Collect(*payload, uri + "#", uri.find('#') == std::string::npos, answer.tags);
    }
  } catch (const std::exception& error) {
    answer = {};
    answer.error = fmt::format("The answer cannot be read: {}.", error.what());
  }
  return answer;
}

std::string ReadArguments(const std::string& uri) {
  return fmt::format(R"({{"id":1,"uri":{}}})", JsonString(uri));
}

}  // namespace zohost
