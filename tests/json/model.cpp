#include "tests/json/model.h"

#include "zovyrnsdk/json/zojson.h"

std::size_t Model::Index(const std::string& name) const {
  for (std::size_t i = 0; i < children.size(); ++i) {
    if (name == (kind == Kind::Array ? std::to_string(i) : children[i].first)) {
      return i;
    }
  }
  return children.size();
}

bool Model::Put(const Path& path, std::size_t depth, const Model& value) {
  if (depth == path.size()) {
    *this = value;
    return true;
  }
  if (kind == Kind::Scalar) {
    *this = Object();
  }
  const std::string& name = path[depth];
  const std::size_t index = Index(name);
  if (index == children.size()) {
    if (kind == Kind::Array && name != "-" && name != std::to_string(children.size())) {
      return false;
    }
    children.emplace_back(name, Model());
  }
  return children[index].second.Put(path, depth + 1, value);
}

bool Model::Set(const Path& path, const Model& value) {
  Model changed = *this;
  if (!changed.Put(path, 0, value)) {
    return false;
  }
  *this = changed;
  return true;
}

bool Model::Remove(const Path& path) {
  if (path.empty()) {
    *this = Model();
    return true;
  }
  Model* above = this;
  for (std::size_t depth = 0; depth + 1 < path.size(); ++depth) {
    const std::size_t index = above->Index(path[depth]);
    if (index == above->children.size()) {
      return false;
    }
    above = &above->children[index].second;
  }
  const std::size_t index = above->Index(path.back());
  if (index == above->children.size()) {
    return false;
  }
  above->children.erase(above->children.begin() + static_cast<std::ptrdiff_t>(index));
  return true;
}

const Model* Model::Find(const Path& path) const {
  const Model* here = this;
  for (const std::string& name : path) {
    const std::size_t index = here->Index(name);
    if (index == here->children.size()) {
      return nullptr;
    }
    here = &here->children[index].second;
  }
  return here;
}

std::string Model::ToString() const {
  if (kind == Kind::Scalar) {
    return scalar;
  }
  std::string text(1, kind == Kind::Array ? '[' : '{');
  for (const auto& [name, child] : children) {
    text += text.size() > 1 ? "," : "";
    text += kind == Kind::Object ? ZoJson::Of(name).ToString() + ":" : "";
    text += child.ToString();
  }
  return text + (kind == Kind::Array ? ']' : '}');
}
