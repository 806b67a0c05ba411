// The server's side of a WebSocket handshake, for sensors that tests, fuzz targets and benchmarks write themselves.
//
// Threads: any; a pure function.
#pragma once

#include <boost/beast/core/detail/base64.hpp>
#include <boost/beast/core/detail/sha1.hpp>
#include <string>
#include <string_view>

namespace ZoTest {

// What answers the key of an upgrade request; an empty text when the request brings none.
inline std::string AcceptKey(std::string_view upgrade) {
  constexpr std::string_view name = "Sec-WebSocket-Key: ";
  constexpr std::size_t keySize = 24;
  const std::size_t at = upgrade.find(name);
  if (at == std::string_view::npos) {
    return std::string();
  }
  const std::string text =
      std::string(upgrade.substr(at + name.size(), keySize)) + "258EAFA5-E914-47DA-95CA-C5AB0DC85B11";
  boost::beast::detail::sha1_context context;
  boost::beast::detail::init(context);
  boost::beast::detail::update(context, text.data(), text.size());
  char digest[boost::beast::detail::sha1_context::digest_size];
  boost::beast::detail::finish(context, digest);
  std::string encoded(boost::beast::detail::base64::encoded_size(sizeof digest), '\0');
  encoded.resize(boost::beast::detail::base64::encode(encoded.data(), digest, sizeof digest));
  return encoded;
}

}  // namespace ZoTest
