// Raised when a case's check does not hold: then there is no figure.
#pragma once

#include <stdexcept>
#include <string>

namespace ZoBench {

class CheckFailed : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

inline void Check(bool holds, const std::string& what) {
  if (!holds) {
    throw CheckFailed(what);
  }
}

}  // namespace ZoBench
