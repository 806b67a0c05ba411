// A sensor that does what a test tells it, byte by byte where need be.
//
// Listens on 127.0.0.1, or on ::1, at a port of the system's choosing. Each connection runs on a thread of its own: by
// default it shakes hands, then hands every request to the responder; a script may take its place and do
// whatever it likes. Threads: any may call; scripts and responders run on the connections' threads. Owner:
// the test. The destructor drops all connections and joins all threads.
#pragma once

#include <sys/socket.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "tests/support/deadline.h"
#include "tests/support/heldport.h"
#include "zovyrnsdk/json/zojson.h"

namespace ZoTest {

// One connection, as the sensor sees it.
class FakePeer {
 public:
  enum Opcode : std::uint8_t { Continuation = 0, Text = 1, Binary = 2, Close = 8, Ping = 9, Pong = 10 };
  struct Frame {
    std::uint8_t opcode = 0;
    bool fin = true;
    std::string payload;
  };

  FakePeer(int socket, unsigned number) : number(number), socket(socket) {}
  FakePeer(const FakePeer&) = delete;
  FakePeer& operator=(const FakePeer&) = delete;
  ~FakePeer();

  // Reads the request of the HTTP upgrade; false when the connection ended first.
  bool ReadUpgrade();
  // Answers it. subprotocol may be empty for none.
  bool AcceptUpgrade(std::string_view subprotocol = "vyrn.v1.json");
  const std::string& UpgradeRequest() const { return upgrade; }

  // The next frame; none when the connection ended.
  std::optional<Frame> Receive();

  // False when the connection has ended. Any thread.
  bool Send(std::string_view text) { return SendFrame(Text, text); }
  bool SendFrame(std::uint8_t opcode, std::string_view payload, bool fin = true);
  bool SendBytes(std::string_view bytes);
  static std::string FrameBytes(std::uint8_t opcode, std::string_view payload, bool fin = true);

  // Ends the connection without a word. Any thread.
  void Drop();
  // Reads until the connection ends, and answers nothing.
  void Swallow();

  const unsigned number;  // 1 for the sensor's first connection

 private:
  bool ReadExactly(char* data, std::size_t size);

  const int socket;
  std::mutex sending;
  std::string upgrade;
};

struct FakeRequest {
  unsigned connection = 0;
  std::uint64_t id = 0;
  std::string method;
  std::string uri;
  ZoJson document;
};

class FakeSensor {
 public:
  using Script = std::function<void(FakePeer&)>;
  using Responder = std::function<void(FakePeer&, const FakeRequest&)>;

  FakeSensor() : FakeSensor(AF_INET) {}
  // AF_INET, or AF_INET6 on a machine that has it.
  explicit FakeSensor(int family);
  FakeSensor(const FakeSensor&) = delete;
  FakeSensor& operator=(const FakeSensor&) = delete;
  ~FakeSensor();

  std::uint16_t Port() const { return port; }

  // Ends everything; no script or responder runs any more.
  void End();

  // From the next connection on; an empty script is the default one.
  void SetScript(Script script);
  // From the next request on; an empty responder grants everything, with {"value": 1} as content.
  void SetResponder(Responder responder);

  // Ends all connections without a word; later ones are welcome.
  void DropAll();
  // Refuses connections, and takes them again, on the same port, which is nobody else's meanwhile.
  void StopListening();
  void Listen();
  // From now on all connections, new ones too, are accepted and read, and hear nothing.
  void FallSilent();
  // The default script answers no close and no ping while this is false.
  void AnswerPings(bool answer) { answerPings = answer; }
  unsigned PongCount() const { return pongs; }

  // Sends a text on the newest connection that shook hands; false when there is none.
  bool Push(std::string_view text);

  unsigned ConnectionCount() const;
  std::vector<FakeRequest> Requests() const;
  std::size_t CountRequests(const std::string& method, const std::string& uri) const;
  // The status of each close frame that came, in order.
  std::vector<int> CloseCodes() const;
  // Waits until the predicate, which is asked under the sensor's lock after each event, holds.
  bool WaitForRequest(const std::string& method, const std::string& uri, std::size_t count = 1) const;
  bool WaitForConnections(unsigned count) const;
  bool WaitForClose(int code) const;

  // The default behaviour, for scripts that begin or end with it.
  void ServeSession(FakePeer& peer);
  static std::string Answer(const FakeRequest& request, const std::string& members);
  static void Grant(FakePeer& peer, const FakeRequest& request);

 private:
  struct Connection {
    std::shared_ptr<FakePeer> peer;
    std::thread thread;
    std::atomic<bool> ended{false};
  };

  void EndListening();
  void Accept();
  void Run(FakePeer& peer);
  void Welcome(int client);
  void NoteClose(const std::string& payload);
  bool WaitFor(const std::function<bool()>& predicate) const;

  const int family;
  std::uint16_t port = 0;
  std::optional<HeldPort> held;  // while nobody listens
  std::atomic<bool> silent{false};
  std::atomic<bool> answerPings{true};
  std::atomic<unsigned> pongs{0};

  mutable std::mutex mutex;
  mutable std::condition_variable changed;
  int listener = -1;
  std::thread acceptor;
  Script script;
  Responder responder;
  std::list<Connection> connections;
  std::weak_ptr<FakePeer> newest;
  unsigned count = 0;
  std::vector<FakeRequest> requests;
  std::vector<int> closeCodes;
};

}  // namespace ZoTest
