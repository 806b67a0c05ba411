// The error of every JSON operation that cannot be done.
#pragma once

#include <stdexcept>

// what() names the pointer (or the position in a text) and why. A plain value.
class ZoJsonError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A document that would cost more memory than it may.
class ZoJsonTooLarge : public ZoJsonError {
 public:
  using ZoJsonError::ZoJsonError;
};
