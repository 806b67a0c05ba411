// Random histories of an instance.
#pragma once

#include <rapidcheck.h>

#include "tests/model/steps.h"

namespace ZoModel {

rc::Gen<History> AnyHistory();

}  // namespace ZoModel

template <>
struct rc::Arbitrary<ZoModel::History> {
  static rc::Gen<ZoModel::History> arbitrary() { return ZoModel::AnyHistory(); }
};
