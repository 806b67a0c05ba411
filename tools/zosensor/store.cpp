#include "tools/zosensor/store.h"

namespace ZoSensor {

bool ResourceStore::Add(Entry resource) {
  std::string path = resource->Path();
  return resources.emplace(std::move(path), std::move(resource)).second;
}

ResourceStore::Entry ResourceStore::Remove(std::string_view path) {
  const auto found = resources.find(path);
  if (found == resources.end()) {
    return nullptr;
  }
  Entry resource = std::move(found->second);
  resources.erase(found);
  resource->removed = true;
  return resource;
}

ResourceStore::Entry ResourceStore::Find(std::string_view path) const {
  const auto found = resources.find(path);
  return found == resources.end() ? nullptr : found->second;
}

std::vector<ResourceStore::Entry> ResourceStore::Matching(const Pattern& pattern) const {
  std::vector<Entry> matching;
  if (const Entry top = Find(pattern.path)) {
    matching.push_back(top);
  }
  if (pattern.subtree) {
    // Siblings such as "/res-2" sort between "/res" and "/res/...": the subtree is a range of its own.
    const std::string below = pattern.path + "/";
    for (auto it = resources.lower_bound(below); it != resources.end() && it->first.starts_with(below);
         ++it) {
      matching.push_back(it->second);
    }
  }
  return matching;
}

ZoJson ResourceStore::Directory() const {
  ZoJson list = ZoJson::EmptyArray();
  for (const auto& [path, resource] : resources) {
    list.Set("-", ZoJson::Of(path));
  }
  ZoJson directory = ZoJson::EmptyObject();
  directory.Set("resources", std::move(list));
  return directory;
}

}  // namespace ZoSensor
