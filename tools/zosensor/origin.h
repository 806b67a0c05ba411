// Whether a browser's page may talk to this server. Pages from elsewhere name their origin; programs name
// none. A function without state.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace ZoSensor {

// origin: the header's value, empty when there is none. localAddress and port: where the request arrived. The
// server's own origins are those of its address, and those of the loopback when it listens there. The Host
// header plays no part: a page can bring its own.
bool IsOriginAllowed(std::string_view origin, std::string_view localAddress, std::uint16_t port,
                     const std::vector<std::string>& allowed);

}  // namespace ZoSensor
