#include "tests/zosensor/rawclient.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <deque>
#include <utility>

#include <boost/asio/connect.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/buffers_to_string.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/websocket.hpp>

namespace ZoSensor {
namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
namespace websocket = beast::websocket;

// For messages of 64 MiB, which a sanitizer masks byte by byte.
constexpr auto sendLimit = ZoTest::kLimit * (ZoTest::kSanitized ? 4 : 1);
using asio::ip::tcp;
using ErrorCode = boost::system::error_code;

tcp::endpoint Loopback(std::uint16_t port) {
  return {asio::ip::address_v4::loopback(), port};
}

// Runs one asynchronous operation to its end, or gives up on it at the limit by closing the socket.
template <typename Start>
ErrorCode RunToEnd(asio::io_context& io, tcp::socket& socket, ZoTest::Clock::duration limit, Start start) {
  std::optional<ErrorCode> result;
  start([&](ErrorCode error, auto&&...) { result = error; });
  const ZoTest::Deadline deadline(limit);
  while (!result && !deadline.Expired()) {  // a read may stay pending beside this operation
    io.restart();
    io.run_one_for(deadline.Left());
  }
  if (!result) {
    ErrorCode ignored;
    socket.close(ignored);
    while (!result) {
      io.restart();
      io.run_one();
    }
    return asio::error::timed_out;
  }
  return *result;
}

}  // namespace

class RawClient::Impl {
 public:
  Impl(std::uint16_t port, const SessionWishes& wishes) {
    tcp::socket& socket = stream.next_layer();
    socket.open(tcp::v4());
    if (wishes.receiveBuffer != 0) {
      socket.set_option(asio::socket_base::receive_buffer_size(static_cast<int>(wishes.receiveBuffer)));
    }
    socket.connect(Loopback(port));
    stream.set_option(websocket::stream_base::decorator([wishes](websocket::request_type& request) {
      if (!wishes.protocol.empty()) {
        request.set(http::field::sec_websocket_protocol, wishes.protocol);
      }
      if (!wishes.moreProtocols.empty()) {
        request.insert(http::field::sec_websocket_protocol, wishes.moreProtocols);
      }
      if (!wishes.origin.empty()) {
        request.set(http::field::origin, wishes.origin);
      }
    }));
    websocket::permessage_deflate compression;
    compression.client_enable = wishes.compression;
    stream.set_option(compression);
    stream.control_callback([this](websocket::frame_type type, beast::string_view) {
      pong = pong || type == websocket::frame_type::pong;
    });
    stream.read_message_max(std::size_t{64} << 20);
    RunToEnd(io, socket, ZoTest::kLimit, [&](auto done) {
      const std::string host = "127.0.0.1:" + std::to_string(port);
      stream.async_handshake(response, wishes.host.empty() ? host : wishes.host, wishes.target, done);
    });
  }

  websocket::response_type response;
  asio::io_context io;
  websocket::stream<tcp::socket> stream{io};
  beast::flat_buffer buffer;
  std::optional<ErrorCode> readResult;
  bool reading = false;
  bool timedOut = false;
  bool pong = false;
  std::deque<ZoJson> pushes;
};

RawClient::RawClient(std::uint16_t port, const SessionWishes& wishes)
    : impl(std::make_unique<Impl>(port, wishes)) {}

RawClient::~RawClient() {
  ErrorCode ignored;
  impl->stream.next_layer().close(ignored);
  impl->io.restart();
  impl->io.run_for(ZoTest::kLimit);
}

unsigned RawClient::HandshakeStatus() const {
  return impl->response.result_int();
}

std::string RawClient::NamedProtocol() const {
  return std::string(impl->response[http::field::sec_websocket_protocol]);
}

std::string RawClient::NamedExtensions() const {
  return std::string(impl->response[http::field::sec_websocket_extensions]);
}

bool RawClient::Send(std::string_view text, bool binary) {
  impl->stream.binary(binary);
  return !RunToEnd(impl->io, impl->stream.next_layer(), sendLimit, [&](auto done) {
    impl->stream.async_write(asio::buffer(text.data(), text.size()), done);
  });
}

bool RawClient::SendRaw(std::string_view bytes) {
  return !RunToEnd(impl->io, impl->stream.next_layer(), ZoTest::kLimit, [&](auto done) {
    asio::async_write(impl->stream.next_layer(), asio::buffer(bytes.data(), bytes.size()), done);
  });
}

bool RawClient::Ping() {
  impl->pong = false;
  return !RunToEnd(impl->io, impl->stream.next_layer(), ZoTest::kLimit,
                   [&](auto done) { impl->stream.async_ping({}, done); });
}

bool RawClient::PongSeen() const {
  return impl->pong;
}

std::optional<std::string> RawClient::Receive(ZoTest::Clock::duration limit) {
  // A read that has not ended yet goes on: giving up waiting must not end the connection.
  if (!impl->reading) {
    impl->reading = true;
    impl->readResult.reset();
    impl->stream.async_read(
        impl->buffer, [state = impl.get()](ErrorCode error, std::size_t) { state->readResult = error; });
  }
  const ZoTest::Deadline deadline(limit);
  while (!impl->readResult && !deadline.Expired()) {
    impl->io.restart();
    impl->io.run_one_for(deadline.Left());
  }
  impl->timedOut = !impl->readResult;
  if (impl->timedOut) {
    return std::nullopt;
  }
  impl->reading = false;
  if (*impl->readResult) {
    return std::nullopt;
  }
  std::string text = beast::buffers_to_string(impl->buffer.data());
  impl->buffer.consume(impl->buffer.size());
  return text;
}

unsigned RawClient::CloseCode() const {
  return impl->stream.reason().code;
}
bool RawClient::TimedOut() const {
  return impl->timedOut;
}

ZoJson RawClient::Ask(std::string_view request) {
  EXPECT_TRUE(Send(request)) << request;
  const ZoJson id = ZoJson::ParseString(request).At("id");
  while (const auto text = Receive()) {
    const ZoJson message = ZoJson::ParseString(*text);
    if (message.HasKey("id") && message.At("id") == id) {
      return message;
    }
    impl->pushes.push_back(message);
  }
  ADD_FAILURE() << "no answer to " << request;
  return ZoJson::ParseString(R"({"status":0,"uri":"","payload":null})");
}

ZoJson RawClient::NextPush() {
  if (impl->pushes.empty()) {
    const auto text = Receive();
    if (!text) {
      ADD_FAILURE() << "no push came";
      return ZoJson::ParseString(R"({"event":"","uri":"","payload":null})");
    }
    return ZoJson::ParseString(*text);
  }
  const ZoJson push = impl->pushes.front();
  impl->pushes.pop_front();
  return push;
}

bool RawClient::Close() {
  return !RunToEnd(impl->io, impl->stream.next_layer(), ZoTest::kLimit,
                   [&](auto done) { impl->stream.async_close(websocket::close_code::normal, done); });
}

HttpAnswer AskHttp(std::uint16_t port, const std::string& method, const std::string& target,
                   const std::string& body, const std::map<std::string, std::string>& headers) {
  asio::io_context io;
  tcp::socket socket(io);
  socket.connect(Loopback(port));
  http::request<http::string_body> request;
  request.version(11);
  request.method_string(method);
  request.target(target);
  request.set(http::field::host, "127.0.0.1");
  for (const auto& [name, value] : headers) {
    request.set(name, value);
  }
  request.body() = body;
  request.prepare_payload();
  HttpAnswer answer;
  // A refusal may come before the whole request is written; what counts is the answer.
  RunToEnd(io, socket, ZoTest::kLimit, [&](auto done) { http::async_write(socket, request, done); });
  beast::flat_buffer buffer;
  http::response_parser<http::string_body> parser;
  parser.skip(method == "HEAD");
  const ErrorCode error = RunToEnd(io, socket, ZoTest::kLimit,
                                   [&](auto done) { http::async_read(socket, buffer, parser, done); });
  if (error) {
    return answer;
  }
  answer.status = parser.get().result_int();
  answer.body = parser.get().body();
  for (const auto& field : parser.get()) {
    std::string name(field.name_string());
    std::transform(name.begin(), name.end(), name.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    answer.headers[name] = std::string(field.value());
  }
  return answer;
}

std::string Exchange(std::uint16_t port, std::string_view bytes) {
  return ExchangeParts(port, {std::string(bytes)}, [] {});
}

std::string ExchangeParts(std::uint16_t port, const std::vector<std::string>& parts,
                          const std::function<void()>& between) {
  asio::io_context io;
  tcp::socket socket(io);
  socket.connect(Loopback(port));
  for (const std::string& part : parts) {
    RunToEnd(io, socket, ZoTest::kLimit,
             [&](auto done) { asio::async_write(socket, asio::buffer(part), done); });
    between();
  }
  std::string received;
  RunToEnd(io, socket, ZoTest::kLimit,
           [&](auto done) { asio::async_read(socket, asio::dynamic_buffer(received), done); });
  return received;
}

}  // namespace ZoSensor
