#include "qapi/address.h"

#include <charconv>
#include <cstring>
#include <string_view>

#include "qapi/faultswitch.h"
#include "qapi/platform.h"

namespace {

// A zone is an interface's name or a number; a name wins, as interfaces may be called by digits.
bool ParseZone(const std::string& zone, std::uint32_t& scope) {
  scope = qApi::Platform::InterfaceIndex(zone.c_str());
  if (scope != 0) {
    return true;
  }
  const char* const end = zone.data() + zone.size();
  const auto result = std::from_chars(zone.data(), end, scope);
  return result.ec == std::errc{} && result.ptr == end;
}

qIpAddress Parse(std::string_view text) {
  qIpAddress address;
  const std::size_t percent = text.find('%');
  const std::string host(text.substr(0, percent));
  if (percent == std::string_view::npos && qApi::Platform::ParseV4(host.c_str(), address.bytes.data())) {
    address.family = qIpFamily::V4;
    return address;
  }
  if (!qApi::Platform::ParseV6(host.c_str(), address.bytes.data())) {
    return {};
  }
  address.family = qIpFamily::V6;
  if (percent != std::string_view::npos && !ParseZone(std::string(text.substr(percent + 1)), address.scope)) {
    return {};
  }
  return address;
}

}  // namespace

qStatus qIpAddress_Parse(const char* text, qIpAddress* out) {
  if (out == nullptr) {
    return qStatus_InvalidArgument;
  }
  *out = {};
  if (text == nullptr) {
    return qStatus_InvalidArgument;
  }
  if (qStatus status; qApi::Fails(qOperation::AddressParse, status)) {
    return status;
  }
  // Longer than every address with a zone: not worth copying.
  constexpr std::size_t maxLength = 128;
  if (strnlen(text, maxLength) == maxLength) {
    return qStatus_InvalidArgument;
  }
  *out = Parse(text);
  return out->family == qIpFamily::None ? qStatus_InvalidArgument : qStatus_Success;
}

std::string qIpAddress_Text(const qIpAddress& address) {
  switch (address.family) {
    case qIpFamily::V4:
      return qApi::Platform::TextV4(address.bytes.data());
    case qIpFamily::V6: {
      const std::string text = qApi::Platform::TextV6(address.bytes.data());
      return address.scope == 0 ? text : text + '%' + std::to_string(address.scope);
    }
    case qIpFamily::None:
      break;
  }
  return {};
}
