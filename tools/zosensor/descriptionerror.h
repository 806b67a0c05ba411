// A fault in a resource description: where in the document, and why. The loader turns the pointer into a
// line.
#pragma once

#include <stdexcept>
#include <string>
#include <utility>

#include "zovyrnsdk/json/zojsonpointer.h"

namespace ZoSensor {

class DescriptionError : public std::runtime_error {
 public:
  DescriptionError(ZoJsonPointer place, const std::string& reason)
      : std::runtime_error(reason), where(std::move(place)) {}

  const ZoJsonPointer& Where() const { return where; }

 private:
  ZoJsonPointer where;
};

}  // namespace ZoSensor
