// Which pushes somebody asked for.
//
// A sensor may push whatever it likes; what nobody asked for is dropped, or a peer could fill the host's memory with
// resources that it invents. A URI counts from the request on, whatever becomes of its answer, until its end is asked
// for or its latest request is refused. A plain container: memory for each URI and pattern that this side asked for.
// Guarded by its owner.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>

#include "zovyrnsdk/link/restorer.h"

namespace ZoSdk {

class Interest {
 public:
  // A caller's own request, of this id, asks for it.
  void Asked(const Restorer::Key& key, std::uint64_t id);
  // The request of this id was refused; that counts unless a later one was made.
  void Refused(const Restorer::Key& key, std::uint64_t id);
  // A caller asked for its end.
  void Ended(const Restorer::Key& key);

  // Whether a stream or subscription concerns the resource. Its leading slash makes no difference: a push may come in
  // either spelling.
  bool Covers(std::string_view uri) const;

  void Clear();
  std::size_t Size() const { return exact.size() + below.size(); }

 private:
  struct Hash {
    using is_transparent = void;
    std::size_t operator()(std::string_view text) const { return std::hash<std::string_view>()(text); }
  };
  // The latest request of each kind and spelling, 0 for none. What is below has one kind.
  using Ids = std::array<std::uint64_t, 4>;
  using Names = std::unordered_map<std::string, Ids, Hash, std::equal_to<>>;

  template <typename Change>
  void Update(const Restorer::Key& key, Change change);

  // Both by names without their leading slash; "/res/*" is below "res", "*" and "/*" are below "".
  Names exact;
  Names below;
  // How many names below have each length. A pushed URI is looked at where one of them may end and nowhere else: a peer
  // may send millions of slashes.
  std::map<std::size_t, std::size_t> lengths;
};

}  // namespace ZoSdk
