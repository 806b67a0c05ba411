// Raised for an item name that cannot be parsed.
#pragma once

#include <stdexcept>

namespace ZoIO {

class ItemError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace ZoIO
