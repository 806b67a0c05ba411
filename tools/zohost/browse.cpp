#include "tools/zohost/browse.h"

#include <algorithm>

#include <fmt/format.h>

#include "tools/zohost/tags.h"
#include "tools/zohost/text.h"

namespace zohost {
namespace {

constexpr int notFound = -404;
constexpr int notAllowed = -405;

ResourceAnswer ReadResource(Session& session, Console& console, const std::string& uri) {
  const bool answered = session.Call("Read", ReadArguments(uri));
  const Delivery delivery = session.Take();
  console.Absorb(delivery);
  if (!answered || delivery.responses.empty()) {
    ResourceAnswer answer;
    answer.error = "The sensor is not connected.";
    return answer;
  }
  return TakeApart(uri, delivery.responses.back());
}

// The resources that the sensor lists at or below the URI, whose leading slash may be left out; a URI that it does
// not list is taken at its word.
std::vector<std::string> Choose(const std::vector<std::string>& resources, const std::string& uri) {
  std::vector<std::string> chosen;
  const std::string top = uri.starts_with('/') ? uri : "/" + uri;
  const std::string below = top.ends_with('/') ? top : top + "/";
  for (const std::string& resource : resources) {
    if (uri.empty() || resource == uri || resource == top || resource.starts_with(below)) {
      chosen.push_back(resource);
    }
  }
  if (chosen.empty() && !uri.empty()) {
    chosen.push_back(uri);
  }
  return chosen;
}

// Whether the answer says no more than that there are no tags: the resource can only be called. One that is listed
// and not found is such a method, or has gone since.
bool HasNoTags(const ResourceAnswer& answer, bool listed) {
  return answer.status == notAllowed || (listed && answer.status == notFound);
}

void PrintTags(Console& console, const ResourceAnswer& answer) {
  for (const Tag& tag : answer.tags) {
    console.Print(fmt::format("{} = {} ({}){}", Printable(tag.item), tag.value.ForPeople(),
                              KindName(tag.value.Kind()),
                              tag.nameable ? "" : "  [no item name reaches this]"));
  }
}

}  // namespace

Status RunBrowse(Session& session, Console& console, const std::string& uri) {
  const ResourceAnswer root = ReadResource(session, console, "/");
  if (root.resources.empty() && uri.empty()) {
    console.Refuse("the resources cannot be listed.",
                   root.error.empty() ? "There is no list. On the simulator any item name works; try watch."
                                      : Printable(root.error));
    return Status::refused;
  }
  Status status = Status::done;
  for (const std::string& resource : Choose(root.resources, uri)) {
    const ResourceAnswer answer = ReadResource(session, console, resource);
    if (answer.status == 1) {
      PrintTags(console, answer);
      continue;
    }
    const bool listed =
        std::find(root.resources.begin(), root.resources.end(), resource) != root.resources.end();
    if (!HasNoTags(answer, listed)) {
      console.Refuse(fmt::format("{} could not be read.", Printable(resource)), Printable(answer.error));
      status = Status::refused;
    }
  }
  return status;
}

}  // namespace zohost
