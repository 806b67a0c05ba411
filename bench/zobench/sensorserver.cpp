#include "bench/zobench/sensorserver.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <system_error>

#include "bench/zobench/checkfailed.h"

namespace ZoBench {
namespace {

constexpr std::size_t NumberWidth = 10;

// The value of a member of our own clients' requests: they write no blanks, and no quote is escaped in what we look for.
std::string_view Member(std::string_view request, std::string_view quotedName) {
  const std::size_t at = request.find(quotedName);
  Check(at != std::string_view::npos, "a request lacks " + std::string(quotedName));
  request.remove_prefix(at + quotedName.size() + 1);
  if (request.starts_with('"')) {
    return request.substr(1, request.find('"', 1) - 1);
  }
  return request.substr(0, request.find_first_of(",}"));
}

}  // namespace

SensorServer::SensorServer(const Script& script, int channel)
    : script(script), channel(channel), listener(Listen(port)) {
  WriteAll(channel, &port, sizeof port);
}

void SensorServer::Run() {
  while (true) {
    if (Serve(-1)) {
      SensorCommand command;
      ReadExactly(channel, &command, sizeof command);
      Obey(command);
    }
  }
}

bool SensorServer::Serve(int milliseconds) {
  std::vector<pollfd> files{{channel, POLLIN, 0}, {listener.File(), POLLIN, 0}};
  for (const auto& client : clients) {
    files.push_back({client->socket.File(), POLLIN, 0});
  }
  const bool alone = ::poll(files.data(), files.size(), milliseconds) == 1;
  for (std::size_t i = 2; i < files.size(); ++i) {
    if (files[i].revents != 0) {
      Drain(*clients[i - 2], alone);
    }
  }
  if (files[1].revents != 0) {
    Welcome();
  }
  return files[0].revents != 0;
}

void SensorServer::Welcome() {
  auto client = std::make_unique<Client>();
  client->socket = Accept(listener);
  AcceptWebSocket(client->socket);
  LimitWaits(client->socket, std::chrono::milliseconds(2));
  clients.push_back(std::move(client));
}

void SensorServer::Obey(const SensorCommand& command) {
  std::uint64_t done = 1;
  switch (command.kind) {
    case SensorCommand::Push:
      PushStreams(*clients.at(command.client), command.first, command.rounds);
      break;
    case SensorCommand::Report: {
      const std::uint64_t figures[4] = {record.requests, record.requestBytes, record.answerBytes,
                                        record.lastRequest.size()};
      WriteAll(channel, figures, sizeof figures);
      WriteAll(channel, record.lastRequest.data(), record.lastRequest.size());
      return;
    }
  }
  WriteAll(channel, &done, sizeof done);
}

void SensorServer::PushStreams(Client& client, std::uint64_t first, std::uint64_t rounds) {
  for (std::uint64_t round = first; round < first + rounds; ++round) {
    for (Resource* resource : client.streams) {
      char* const number = resource->push.data() + resource->pushNumber;
      std::to_chars(number, number + NumberWidth, round);
      WriteAll(client.socket.File(), resource->push.data(), resource->push.size());
    }
    Serve(0);  // pings wait for an answer
  }
  client.hasPonged = false;
  const std::string ping = Frame(Opcode::Ping, "done");
  WriteAll(client.socket.File(), ping.data(), ping.size());
  while (!client.hasPonged) {
    Serve(-1);
    Check(client.socket.File() >= 0, "a client went away");
  }
}

void SensorServer::Drain(Client& client, bool alone) {
  try {
    // A client that asks once asks again: waiting for it alone saves a call of poll for each request, which the
    // reference does not have either. Others that ask meanwhile must not wait for that.
    do {
      if (client.socket.File() < 0) {
        return;
      }
      errno = 0;
      if (!client.reader.Fill(client.socket.File())) {
        if (errno != EAGAIN) {
          client.socket = Socket();
        }
        return;
      }
    } while (ServeFrames(client) && alone);
  } catch (const std::system_error&) {
    client.socket = Socket();  // it left before its answer; the others stay
  }
}

bool SensorServer::ServeFrames(Client& client) {
  bool asked = false;
  ReceivedFrame frame;
  while (client.reader.Next(frame)) {
    if (frame.opcode == Opcode::Text) {
      record.requestBytes = frame.bytes;
      ++record.requests;
      asked = true;
      Answer(client, frame.payload);
    } else if (frame.opcode == Opcode::Pong) {
      client.hasPonged = client.hasPonged || frame.payload == "done";
    } else if (frame.opcode == Opcode::Ping || frame.opcode == Opcode::Close) {
      const std::string reply =
          Frame(frame.opcode == Opcode::Ping ? Opcode::Pong : Opcode::Close, frame.payload);
      WriteAll(client.socket.File(), reply.data(), reply.size());
    }
  }
  return asked;
}

void SensorServer::Answer(Client& client, std::string_view request) {
  record.lastRequest.assign(request);
  const std::string_view method = Member(request, "\"method\"");
  const std::string_view uri = Member(request, "\"uri\"");
  std::string answer = "{\"id\":" + std::string(Member(request, "\"id\""));
  ((answer += ",\"status\":1,\"uri\":\"") += uri) += '"';
  if (method == "read" || method == "startStream") {
    Resource& resource = ResourceOf(uri);
    (answer += ",\"payload\":") += resource.content;
    if (method == "startStream") {
      client.streams.push_back(&resource);
    }
  } else if (method == "stopStream") {
    std::erase(client.streams, &ResourceOf(uri));
  }
  answer += "}";
  const std::string frame = Frame(Opcode::Text, answer);
  record.answerBytes = frame.size();
  WriteAll(client.socket.File(), frame.data(), frame.size());
}

SensorServer::Resource& SensorServer::ResourceOf(std::string_view uri) {
  const auto [found, isNew] = resources.try_emplace(std::string(uri));
  Resource& resource = found->second;
  if (isNew) {
    const std::string members = script(uri);
    resource.content = "{\"n\":" + std::to_string(FirstRound) + (members.empty() ? "" : ",") + members + "}";
    const std::string head = "{\"event\":\"stream\",\"uri\":\"" + std::string(uri) + "\",\"payload\":{\"n\":";
    resource.push =
        Frame(Opcode::Text, head + resource.content.substr(std::string_view("{\"n\":").size()) + "}");
    resource.pushNumber =
        resource.push.find("\"payload\":{\"n\":") + std::string_view("\"payload\":{\"n\":").size();
  }
  return resource;
}

}  // namespace ZoBench
