#include "fuzz/sdk/stream.h"

#include <sys/resource.h>

#include <chrono>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "fuzz/json/require.h"
#include "fuzz/sdk/frames.h"
#include "fuzz/sdk/streampeer.h"
#include "zovyrnsdk/link/incoming.h"
#include "zovyrnsdk/link/linkstate.h"
#include "zovyrnsdk/link/outgoing.h"
#include "zovyrnsdk/link/session.h"

namespace ZoFuzz {

namespace {

using namespace ZoSdk;

constexpr long mostGrowth = 32 * 1024;  // KiB of memory that one play may cost

long PeakMemory() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

Endpoint PeerEndpoint() {
  Endpoint endpoint;
  endpoint.port = StreamPeer::Port();
  Require(qIpAddress_Parse("127.0.0.1", &endpoint.address) == qStatus_Success, "an address can be read");
  return endpoint;
}

// What a connection does with its session, without its threads and its clock.
class Play final : public SessionEvents {
 public:
  explicit Play(std::string_view bytes)
      : input(bytes), peer(input), session(std::make_unique<Session>(loop, PeerEndpoint(), *this)) {}

  void Run() {
    const Time limit = Clock::now() + std::chrono::seconds(8);
    for (unsigned idle = 0; !(peer.Done() && (ended || gone));) {
      peer.Turn(opened);
      Sweep();
      if (session && std::exchange(paused, false)) {
        session->ResumeReading();
      }
      idle = peer.Done() ? idle + 1 : 0;
      if (idle > 16) {
        loop.RunOne(Clock::now() + std::chrono::milliseconds(1));
      }
      Require(Clock::now() < limit, "a session ends with its connection");
    }
    for (int more = 0; more < 4; ++more) {  // what was on its way
      peer.Turn(opened);
      Sweep();
    }
    if (session) {
      session->Abort();
    }
    Sweep();
    Judge();
  }

 private:
  void OnOpen() override {
    Require(!opened && !ended && !closed, "a session opens once, before everything else");
    Require(peer.KeyShown(), "no session opens without its key");
    opened = true;
    state.SessionOpened(now);
    for (const auto method : {ZoRequestMethod_StartStream, ZoRequestMethod_Read}) {
      asked.push_back(std::make_shared<ZoPendingRequest>());
      state.Request(method, "/s", ComposeRequest(method, "/s", nullptr), asked.back(), now);
    }
    session->Ping();
    Pump();
  }

  bool OnMessage(std::string_view text, bool binary) override {
    Require(opened && !ended && !closed && !paused, "messages come while they may");
    heard.push_back({std::string(text), binary});
    Incoming message;
    if (binary) {
      message.kind = Incoming::Kind::Malformed;
    } else {
      message = ReadIncoming(text, shapes);
    }
    if (message.kind == Incoming::Kind::Malformed) {
      state.MessageUnusable(text, true, now);
      if (input.Has(StreamInput::Strict)) {
        closed = true;
        session->Close(Session::CloseCode_BadMessage, [this] { gone = true; });
        session.reset();
        return false;
      }
    } else {
      Require(message.document.IsObject(), "objects alone get through");
      state.Receive(std::move(message), now);
      if (!writing) {
        Pump();
      }
    }
    paused = input.Has(StreamInput::Pausing);
    return !paused;
  }

  void OnBytes() override { Require(!ended && !closed, "no byte is heard after the end"); }

  void OnHeard() override { OnBytes(); }
  void OnMessageGrows() override {
    OnBytes();
    state.MessageGrows(now);
  }
  void OnPong() override { OnBytes(); }

  void OnSent() override {
    Require(opened && writing && !ended && !closed, "only what was given is sent");
    writing = false;
    Pump();
  }

  void OnEnd(const SessionEnd& end) override {
    Require(!ended && !closed, "a session ends once");
    Require(!end.cause.empty(), "an end has a cause");
    ended = true;
    state.MessageUnusable(end.partial, true, now);
    if (opened) {
      state.SessionLost(end.cause, now);
    }
  }

  void Pump() {
    if (auto message = state.NextMessage(now)) {
      writing = true;
      session->Send(std::move(*message));
    }
  }

  // Does all that can be done at once.
  void Sweep() {
    for (int turn = 0; turn < 3;
         ++turn) {  // one to see that bytes are there, one to take them, one for what follows
      bool swept = false;
      loop.Post([&swept] { swept = true; });
      while (!swept) {
        loop.RunOne(never);
      }
    }
  }

  void Judge() const {
    const Framing sent = ReadFraming(peer.SentFrames(), Side::Sensor);
    const bool untouched = !input.Has(StreamInput::Reset);
    Require(opened || !untouched || input.Has(StreamInput::OwnHandshake), "a proper answer opens a session");
    Require(heard.size() <= sent.messages.size(), "no message comes of nothing");
    for (std::size_t i = 0; i < heard.size(); ++i) {
      Require(heard[i].text == sent.messages[i].text && heard[i].binary == sent.messages[i].binary,
              "messages come as they were sent");
    }
    Require(!opened || !untouched || closed || heard.size() == sent.messages.size(), "no message is lost");

    ZoJsonShapes requests;
    const Framing answer = ReadFraming(peer.ReceivedFrames(), Side::Link);
    Require(answer.fault.empty() && answer.bytesBehind == 0, "what goes out is framed well");
    Require(opened || peer.ReceivedFrames().empty(), "nothing goes out before the session is open");
    Require(answer.pongs <= sent.pings && answer.pings <= 1, "pings are answered once");
    for (const FramedMessage& message : answer.messages) {
      Require(!message.binary && ReadIncoming(message.text, requests).kind != Incoming::Kind::Malformed,
              "requests are objects");
    }
  }

  const StreamInput input;
  StreamPeer peer;
  EventLoop loop;
  LinkState state;
  ZoJsonShapes shapes;
  const Time now = Time{} + std::chrono::hours(1);
  std::vector<std::shared_ptr<ZoPendingRequest>> asked;
  std::vector<FramedMessage> heard;
  bool opened = false;
  bool ended = false;   // OnEnd came
  bool closed = false;  // ended from here
  bool gone = false;    // the connection of one that was
  bool paused = false;
  bool writing = false;
  std::unique_ptr<Session> session;
};

}  // namespace

void PlayStream(std::string_view input) {
  const long before = PeakMemory();
  Play(input).Run();
  Require(PeakMemory() - before < mostGrowth, "memory stays bounded");
}

}  // namespace ZoFuzz
