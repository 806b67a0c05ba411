// The sensor that is served without a resource file. Its description is the text of such a file, which users
// may print and change.
#pragma once

#include <string_view>

namespace ZoSensor {

std::string_view DemoResources();

}  // namespace ZoSensor
