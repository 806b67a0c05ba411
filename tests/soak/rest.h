// One request to a sensor's REST door, on a connection of its own. Blocks for two seconds at most.
#pragma once

#include <cstdint>
#include <string>

namespace ZoSoak {

// The status of the answer; 0 when none came. path: below /vyrn/v1/resources.
int AskRest(std::uint16_t port, const std::string& method, const std::string& path,
            const std::string& body = "");

}  // namespace ZoSoak
