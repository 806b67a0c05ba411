#include "bench/zobench/references.h"

#include <algorithm>

#include "bench/zobench/checkfailed.h"
#include "bench/zobench/measures.h"

namespace ZoBench {
namespace {

struct Terms {
  std::uint64_t requestBytes = 0;
  std::uint64_t answerBytes = 0;
  std::uint64_t count = 0;
};

void AnswerBlindly(int channel) {
  std::uint16_t port = 0;
  const Socket listener = Listen(port);
  WriteAll(channel, &port, sizeof port);
  const Socket socket = Accept(listener);
  std::vector<char> bytes;
  while (true) {
    Terms terms;
    ReadExactly(channel, &terms, sizeof terms);
    bytes.resize(std::max(terms.requestBytes, terms.answerBytes));
    for (std::uint64_t i = 0; i < terms.count; ++i) {
      ReadExactly(socket.File(), bytes.data(), terms.requestBytes);
      WriteAll(socket.File(), bytes.data(), terms.answerBytes);
    }
  }
}

}  // namespace

PingPong::PingPong() : child(&AnswerBlindly) {
  std::uint16_t port = 0;
  ReadExactly(child.Channel(), &port, sizeof port);
  socket = Connect(port);
}

double PingPong::Exchange(std::uint64_t requestBytes, std::uint64_t answerBytes, std::uint64_t count) {
  const Terms terms{requestBytes, answerBytes, count + 1};
  std::vector<char> bytes(std::max(requestBytes, answerBytes));
  WriteAll(child.Channel(), &terms, sizeof terms);
  double start = 0;
  for (std::uint64_t i = 0; i <= count; ++i) {
    if (i == 1) {
      start = Now();  // the first one woke the peer from its wait for the terms
    }
    WriteAll(socket.File(), bytes.data(), requestBytes);
    ReadExactly(socket.File(), bytes.data(), answerBytes);
  }
  return (Now() - start) / static_cast<double>(count);
}

FramesOnlyReader::FramesOnlyReader(std::uint16_t port, const std::vector<std::string>& uris)
    : socket(Connect(port)) {
  OpenWebSocket(socket);
  for (std::size_t i = 0; i < uris.size(); ++i) {
    const std::string request = Frame(
        Opcode::Text,
        "{\"id\":" + std::to_string(i) + ",\"method\":\"startStream\",\"uri\":\"" + uris[i] + "\"}", true);
    WriteAll(socket.File(), request.data(), request.size());
    NextFrame();  // the answer
  }
}

std::uint64_t FramesOnlyReader::TakeToPing() {
  for (std::uint64_t pushes = 0;; ++pushes) {
    const ReceivedFrame frame = NextFrame();
    if (frame.opcode == Opcode::Ping) {
      const std::string pong = Frame(Opcode::Pong, frame.payload, true);
      WriteAll(socket.File(), pong.data(), pong.size());
      return pushes;
    }
  }
}

ReceivedFrame FramesOnlyReader::NextFrame() {
  ReceivedFrame frame;
  while (!reader.Next(frame)) {
    Check(reader.Fill(socket.File()), "the sensor went away");
  }
  return frame;
}

void FlatTable::Add(const std::string& name, double value) {
  Entry entry{name, {}};
  entry.value.type = enumtype_double;
  entry.value.value.float64 = value;
  entries.push_back(std::move(entry));
}

void FlatTable::Walk(ioItemValueCallback callback, void* context) const {
  for (const Entry& entry : entries) {
    callback(entry.name.c_str(), &entry.value, context);
  }
}

}  // namespace ZoBench
