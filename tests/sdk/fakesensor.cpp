#include "tests/sdk/fakesensor.h"
#include "tests/support/acceptkey.h"
#include "tests/support/boundsocket.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace ZoTest {

namespace {

int MakeListener(std::uint16_t port, int family) {
  const int listener = BoundSocket(port, family);
  if (::listen(listener, 64) != 0) {
    throw std::system_error(errno, std::generic_category(), "listen");
  }
  return listener;
}

std::uint16_t PortOf(int listener) {
  sockaddr_in6 address{};  // an IPv4 address has its port at the same place
  socklen_t size = sizeof address;
  ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size);
  return ntohs(address.sin6_port);
}

}  // namespace

FakePeer::~FakePeer() {
  ::close(socket);
}

bool FakePeer::ReadUpgrade() {
  char c = 0;
  while (!upgrade.ends_with("\r\n\r\n")) {
    if (!ReadExactly(&c, 1)) {
      return false;
    }
    upgrade += c;
  }
  return true;
}

bool FakePeer::AcceptUpgrade(std::string_view subprotocol) {
  std::string answer = "HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n";
  answer += "Sec-WebSocket-Accept: " + AcceptKey(upgrade) + "\r\n";
  if (!subprotocol.empty()) {
    answer += "Sec-WebSocket-Protocol: " + std::string(subprotocol) + "\r\n";
  }
  return SendBytes(answer + "\r\n");
}

std::optional<FakePeer::Frame> FakePeer::Receive() {
  unsigned char head[2];
  if (!ReadExactly(reinterpret_cast<char*>(head), 2)) {
    return std::nullopt;
  }
  std::uint64_t length = head[1] & 0x7FU;
  const std::size_t extra = length == 126 ? 2 : length == 127 ? 8 : 0;
  unsigned char more[8];
  if (extra != 0) {
    if (!ReadExactly(reinterpret_cast<char*>(more), extra)) {
      return std::nullopt;
    }
    length = 0;
    for (std::size_t i = 0; i < extra; ++i) {
      length = length << 8 | more[i];
    }
  }
  char mask[4] = {};
  if ((head[1] & 0x80U) != 0 && !ReadExactly(mask, 4)) {
    return std::nullopt;
  }
  Frame frame;
  frame.opcode = head[0] & 0x0FU;
  frame.fin = (head[0] & 0x80U) != 0;
  frame.payload.resize(length);
  if (!ReadExactly(frame.payload.data(), length)) {
    return std::nullopt;
  }
  // By the byte, and through the string's own operator, large requests would take half a minute under the sanitizers.
  char* const payload = frame.payload.data();
  for (std::uint64_t i = 0; i < length; ++i) {
    payload[i] = static_cast<char>(payload[i] ^ mask[i % 4]);
  }
  return frame;
}

bool FakePeer::SendFrame(std::uint8_t opcode, std::string_view payload, bool fin) {
  return SendBytes(FrameBytes(opcode, payload, fin));
}

std::string FakePeer::FrameBytes(std::uint8_t opcode, std::string_view payload, bool fin) {
  std::string bytes;
  bytes += static_cast<char>((fin ? 0x80 : 0) | opcode);
  const std::size_t extra = payload.size() < 126 ? 0 : payload.size() <= 0xFFFF ? 2 : 8;
  bytes += static_cast<char>(extra == 0 ? payload.size() : extra == 2 ? 126 : 127);
  for (std::size_t i = extra; i-- > 0;) {
    bytes += static_cast<char>(payload.size() >> (8 * i) & 0xFF);
  }
  bytes += payload;
  return bytes;
}

bool FakePeer::SendBytes(std::string_view bytes) {
  const std::lock_guard lock(sending);
  while (!bytes.empty()) {
    const ssize_t sent = ::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) {
      continue;
    }
    if (sent <= 0) {
      return false;
    }
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
  return true;
}

void FakePeer::Drop() {
  ::shutdown(socket, SHUT_RDWR);
}

void FakePeer::Swallow() {
  char scratch[4096];
  while (::recv(socket, scratch, sizeof scratch, 0) > 0) {
  }
}

bool FakePeer::ReadExactly(char* data, std::size_t size) {
  while (size != 0) {
    const ssize_t got = ::recv(socket, data, size, 0);
    if (got < 0 && errno == EINTR) {
      continue;
    }
    if (got <= 0) {
      return false;
    }
    data += got;
    size -= static_cast<std::size_t>(got);
  }
  return true;
}

FakeSensor::FakeSensor(int family) : family(family) {
  Listen();
}

FakeSensor::~FakeSensor() {
  End();
}

void FakeSensor::End() {
  EndListening();
  DropAll();
  for (Connection& connection : connections) {
    connection.thread.join();
  }
  connections.clear();
}

void FakeSensor::SetScript(Script next) {
  const std::lock_guard lock(mutex);
  script = std::move(next);
}

void FakeSensor::SetResponder(Responder next) {
  const std::lock_guard lock(mutex);
  responder = std::move(next);
}

void FakeSensor::DropAll() {
  const std::lock_guard lock(mutex);
  for (Connection& connection : connections) {
    connection.peer->Drop();
  }
}

void FakeSensor::StopListening() {
  EndListening();
  held.emplace(port, family);
}

void FakeSensor::EndListening() {
  if (acceptor.joinable()) {
    ::shutdown(listener, SHUT_RDWR);
    acceptor.join();
    ::close(listener);
  }
}

void FakeSensor::Listen() {
  listener = MakeListener(port, family);
  port = PortOf(listener);
  held.reset();
  acceptor = std::thread([this] { Accept(); });
}

void FakeSensor::FallSilent() {
  silent = true;
}

bool FakeSensor::Push(std::string_view text) {
  std::shared_ptr<FakePeer> peer;
  {
    const std::lock_guard lock(mutex);
    peer = newest.lock();
  }
  return peer && peer->Send(text);
}

unsigned FakeSensor::ConnectionCount() const {
  const std::lock_guard lock(mutex);
  return count;
}

std::vector<FakeRequest> FakeSensor::Requests() const {
  const std::lock_guard lock(mutex);
  return requests;
}

std::size_t FakeSensor::CountRequests(const std::string& method, const std::string& uri) const {
  const std::lock_guard lock(mutex);
  return static_cast<std::size_t>(std::count_if(
      requests.begin(), requests.end(),
      [&](const FakeRequest& request) { return request.method == method && request.uri == uri; }));
}

std::vector<int> FakeSensor::CloseCodes() const {
  const std::lock_guard lock(mutex);
  return closeCodes;
}

bool FakeSensor::WaitForRequest(const std::string& method, const std::string& uri, std::size_t wanted) const {
  return WaitFor([&] {
    return static_cast<std::size_t>(std::count_if(
               requests.begin(), requests.end(),
               [&](const FakeRequest& r) { return r.method == method && r.uri == uri; })) >= wanted;
  });
}

bool FakeSensor::WaitForConnections(unsigned wanted) const {
  return WaitFor([&] { return count >= wanted; });
}

bool FakeSensor::WaitForClose(int code) const {
  return WaitFor([&] { return std::find(closeCodes.begin(), closeCodes.end(), code) != closeCodes.end(); });
}

bool FakeSensor::WaitFor(const std::function<bool()>& predicate) const {
  std::unique_lock lock(mutex);
  return changed.wait_for(lock, kLimit, predicate);
}

void FakeSensor::Accept() {
  while (true) {
    const int client = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (client < 0) {
      return;  // shut down
    }
    Welcome(client);
  }
}

void FakeSensor::Welcome(int client) {
  const int on = 1;
  ::setsockopt(client, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  const std::lock_guard lock(mutex);
  connections.remove_if([](Connection& connection) {
    if (connection.ended) {
      connection.thread.join();
      return true;
    }
    return false;
  });
  Connection& connection = connections.emplace_back();
  connection.peer = std::make_shared<FakePeer>(client, ++count);
  connection.thread = std::thread([this, &connection] {
    Run(*connection.peer);
    connection.peer->Drop();
    connection.ended = true;
  });
  changed.notify_all();
}

void FakeSensor::Run(FakePeer& peer) {
  Script chosen;
  {
    const std::lock_guard lock(mutex);
    chosen = script;
  }
  if (silent) {
    peer.Swallow();
  } else if (chosen) {
    chosen(peer);
  } else if (peer.ReadUpgrade() && peer.AcceptUpgrade()) {
    ServeSession(peer);
  }
}

void FakeSensor::ServeSession(FakePeer& peer) {
  {
    const std::lock_guard lock(mutex);
    for (Connection& connection : connections) {
      if (connection.peer.get() == &peer) {
        newest = connection.peer;
      }
    }
    changed.notify_all();
  }
  std::string text;
  while (const auto frame = peer.Receive()) {
    if (silent) {
      continue;
    }
    if (frame->opcode == FakePeer::Ping && answerPings) {
      peer.SendFrame(FakePeer::Pong, frame->payload);
      ++pongs;
    } else if (frame->opcode == FakePeer::Close) {
      NoteClose(frame->payload);
      peer.SendFrame(FakePeer::Close, frame->payload);
      return;
    } else if (frame->opcode == FakePeer::Text || frame->opcode == FakePeer::Continuation) {
      text += frame->payload;
      if (!frame->fin) {
        continue;
      }
      FakeRequest request;
      request.document = ZoJson::ParseString(std::exchange(text, std::string()));
      request.connection = peer.number;
      request.id = request.document.At("id").Get<unsigned long long>();
      request.method = request.document.At("method").Get<std::string>();
      request.uri = request.document.At("uri").Get<std::string>();
      Responder chosen;
      {
        const std::lock_guard lock(mutex);
        requests.push_back(request);
        chosen = responder;
        changed.notify_all();
      }
      chosen ? chosen(peer, request) : Grant(peer, request);
    }
  }
}

void FakeSensor::NoteClose(const std::string& payload) {
  const std::lock_guard lock(mutex);
  if (payload.size() >= 2) {
    closeCodes.push_back(static_cast<unsigned char>(payload[0]) << 8 |
                         static_cast<unsigned char>(payload[1]));
  }
  changed.notify_all();
}

std::string FakeSensor::Answer(const FakeRequest& request, const std::string& members) {
  return "{\"id\":" + std::to_string(request.id) + (members.empty() ? "" : ",") + members + "}";
}

void FakeSensor::Grant(FakePeer& peer, const FakeRequest& request) {
  const bool content =
      request.method == "read" || request.method == "startStream" || request.method == "call";
  const std::string uri = ZoJson::Of(request.uri).ToString();
  peer.Send(Answer(request, "\"status\":1,\"uri\":" + uri + (content ? ",\"payload\":{\"value\":1}" : "")));
}

}  // namespace ZoTest
