// A JSON value without any of the cleverness: plain trees that are copied whole. What ZoJson does to shared
// values must never show a difference to this.
#pragma once

#include <string>
#include <utility>
#include <vector>

class Model {
 public:
  using Path = std::vector<std::string>;

  // A scalar, given as its JSON text.
  explicit Model(std::string scalar = "null") : scalar(std::move(scalar)) {}
  static Model Array() { return Model(Kind::Array); }
  static Model Object() { return Model(Kind::Object); }

  // Like ZoJson::Set; false, and nothing changed, where that raises.
  bool Set(const Path& path, const Model& value);
  // Like ZoJson::Remove.
  bool Remove(const Path& path);
  std::string ToString() const;
  const Model* Find(const Path& path) const;

 private:
  enum class Kind { Scalar, Array, Object };

  explicit Model(Kind kind) : kind(kind) {}
  // Where the child of that name is; the size when it is not there.
  std::size_t Index(const std::string& name) const;
  bool Put(const Path& path, std::size_t depth, const Model& value);

  Kind kind = Kind::Scalar;
  std::string scalar;
  std::vector<std::pair<std::string, Model>> children;  // elements have no name
};
