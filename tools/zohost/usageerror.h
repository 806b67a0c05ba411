// What was typed cannot be meant: the tool says so in one sentence and ends with status 2.
#pragma once

#include <stdexcept>

namespace zohost {

class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace zohost
