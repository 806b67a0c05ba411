#include "bench/zobench/websocket.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "bench/zobench/checkfailed.h"
#include "tests/support/acceptkey.h"

namespace ZoBench {
namespace {

std::string ReadHead(const Socket& socket) {
  std::string head;
  while (!head.ends_with("\r\n\r\n")) {
    char c = 0;
    ReadExactly(socket.File(), &c, 1);
    head += c;
  }
  return head;
}

}  // namespace

void AcceptWebSocket(const Socket& socket) {
  const std::string head = ReadHead(socket);
  const std::string key = ZoTest::AcceptKey(head);
  Check(!key.empty(), "a client asked for no WebSocket");
  const std::string answer =
      "HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
      "Sec-WebSocket-Protocol: vyrn.v1.json\r\nSec-WebSocket-Accept: " +
      key + "\r\n\r\n";
  WriteAll(socket.File(), answer.data(), answer.size());
}

void OpenWebSocket(const Socket& socket) {
  const std::string request =
      "GET /vyrn/v1 HTTP/1.1\r\nHost: 127.0.0.1\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
      "Sec-WebSocket-Version: 13\r\nSec-WebSocket-Protocol: vyrn.v1.json\r\n"
      "Sec-WebSocket-Key: MDEyMzQ1Njc4OWFiY2RlZg==\r\n\r\n";
  WriteAll(socket.File(), request.data(), request.size());
  Check(ReadHead(socket).starts_with("HTTP/1.1 101"), "the sensor refused the WebSocket");
}

std::string Frame(Opcode opcode, std::string_view payload, bool masked) {
  std::string frame;
  frame += static_cast<char>(0x80U | static_cast<unsigned>(opcode));
  const unsigned mask = masked ? 0x80 : 0;
  const std::size_t extra = payload.size() < 126 ? 0 : payload.size() <= 0xFFFF ? 2 : 8;
  frame += static_cast<char>(mask | (extra == 0 ? payload.size() : extra == 2 ? 126U : 127U));
  for (std::size_t i = extra; i-- > 0;) {
    frame += static_cast<char>(payload.size() >> (8 * i) & 0xFF);
  }
  if (masked) {
    frame.append(4, '\0');
  }
  return frame.append(payload);
}

FrameReader::FrameReader() : buffer(256 * 1024) {}

bool FrameReader::Fill(int file) {
  if (begin != 0 && (begin == end || wanted > buffer.size() - begin || end == buffer.size())) {
    std::memmove(buffer.data(), buffer.data() + begin, end - begin);
    end -= begin;
    begin = 0;
  }
  if (wanted > buffer.size()) {
    buffer.resize(wanted * 2);
  }
  ssize_t got = 0;
  do {
    got = ::recv(file, buffer.data() + end, buffer.size() - end, 0);
  } while (got < 0 && errno == EINTR);
  if (got <= 0) {
    return false;
  }
  end += static_cast<std::size_t>(got);
  return true;
}

bool FrameReader::Next(ReceivedFrame& frame) {
  const auto* head = reinterpret_cast<const unsigned char*>(buffer.data() + begin);
  const std::size_t have = end - begin;
  if (have < 2) {
    return false;
  }
  const bool masked = (head[1] & 0x80U) != 0;
  std::uint64_t length = head[1] & 0x7FU;
  const std::size_t extra = length == 126 ? 2 : length == 127 ? 8 : 0;
  const std::size_t headSize = 2 + extra + (masked ? 4 : 0);
  if (have < headSize) {
    return false;
  }
  if (extra != 0) {
    length = 0;
    for (std::size_t i = 0; i < extra; ++i) {
      length = length << 8 | head[2 + i];
    }
  }
  wanted = headSize + length;
  if (have < wanted) {
    return false;
  }
  char* payload = buffer.data() + begin + headSize;
  if (masked) {
    for (std::size_t i = 0; i < length; ++i) {
      payload[i] = static_cast<char>(payload[i] ^ payload[-4 + static_cast<std::ptrdiff_t>(i % 4)]);
    }
  }
  frame = {static_cast<Opcode>(head[0] & 0x0FU), std::string_view(payload, length), wanted};
  begin += wanted;
  wanted = 0;
  return true;
}

}  // namespace ZoBench
