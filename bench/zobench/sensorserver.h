// The child's side of ScriptedSensor: one loop over the channel, the listener and the clients.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "bench/zobench/scriptedsensor.h"
#include "bench/zobench/sockets.h"
#include "bench/zobench/websocket.h"

namespace ZoBench {

struct SensorCommand {
  enum Kind : std::uint32_t { Push, Report };
  Kind kind = Push;
  std::uint32_t client = 0;
  std::uint64_t first = 0;
  std::uint64_t rounds = 0;
};

class SensorServer {
 public:
  SensorServer(const Script& script, int channel);

  // Until the channel ends.
  void Run();

 private:
  struct Resource {
    std::string content;
    std::string push;            // the whole frame
    std::size_t pushNumber = 0;  // where n stands in it
  };
  struct Client {
    Socket socket;
    FrameReader reader;
    std::vector<Resource*> streams;
    bool hasPonged = false;
  };

  void Welcome();
  void Obey(const SensorCommand& command);
  void PushStreams(Client& client, std::uint64_t first, std::uint64_t rounds);
  // Serves whatever waits, for so long at most if nothing does. Returns whether the channel has something.
  bool Serve(int milliseconds);
  // Serves what it sent. Alone: nobody else asks for anything.
  void Drain(Client& client, bool alone);
  // What has been received. Returns whether there was a request.
  bool ServeFrames(Client& client);
  void Answer(Client& client, std::string_view request);
  Resource& ResourceOf(std::string_view uri);

  const Script& script;
  const int channel;
  std::uint16_t port = 0;
  Socket listener;
  std::vector<std::unique_ptr<Client>> clients;
  std::unordered_map<std::string, Resource> resources;
  SensorRecord record;
};

}  // namespace ZoBench
