// Random histories of an instance at the end of a wire.
#pragma once

#include <rapidcheck.h>

#include "tests/model/wiresteps.h"

namespace ZoModel {

// Of up to so many steps.
rc::Gen<WireHistory> AnyWireHistory(int steps);

}  // namespace ZoModel
