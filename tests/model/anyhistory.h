// Random histories of an instance.
#pragma once

#include <rapidcheck.h>

#include "tests/model/steps.h"

namespace ZoModel {

// Whether the clock may be set back in them.
enum class Clocks { OnlyForwards, AlsoBackwards };

// Of up to so many steps.
rc::Gen<History> AnyHistory(Clocks clocks, int steps);

}  // namespace ZoModel
