// Raised when the cache holds no value for a key.
#pragma once

#include <stdexcept>

namespace ZoIO {

class CacheError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace ZoIO
