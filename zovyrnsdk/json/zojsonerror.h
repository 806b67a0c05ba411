// The error of every JSON operation that cannot be done.
#pragma once

#include <stdexcept>

// what() names the pointer (or the position in a text) and why. A plain value.
class ZoJsonError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};
