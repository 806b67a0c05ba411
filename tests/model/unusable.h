// Messages that no client can take in: each ends its session.
#pragma once

#include <string>

namespace ZoModel {

enum class Unusable {
  Broken,  // no JSON
  Deep,    // nested deeper than a client reads
  List,    // JSON, but no object
};

const char* Name(Unusable how);

// members: what the message says beside its payload: "\"id\":7".
std::string UnusableMessage(Unusable how, const std::string& members);

// What the link calls it.
std::string FaultOf(Unusable how);

}  // namespace ZoModel
