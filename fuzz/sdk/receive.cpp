#include "fuzz/sdk/receive.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <string>
#include <vector>

#include "zovyrnsdk/json/zojsonnesting.h"
#include "zovyrnsdk/link/incoming.h"
#include "zovyrnsdk/link/limits.h"
#include "zovyrnsdk/link/linkstate.h"
#include "zovyrnsdk/link/outgoing.h"

namespace ZoFuzz {

namespace {

using namespace ZoSdk;

void Require(bool holds, const char* what) {
  if (!holds) {
    std::fprintf(stderr, "broken: %s\n", what);
    std::abort();
  }
}

class Play {
 public:
  Play() { state.SessionOpened(now); }

  void Line(std::string_view line) {
    if (line.starts_with('!')) {
      Act(line.substr(1));
    } else {
      Message(line);
    }
    while (const auto message = state.NextMessage(now)) {
      Require(IsUtf8(*message), "what goes out is UTF-8");
      Require(JsonNesting(*message) <= depthLimit, "what goes out is not too deep");
    }
    Require(state.Requests().Count(RequestRole::Restore) <= restoreWindow, "restores are windowed");
    Require(!state.Requests().HasUnsent(), "everything was sent");
  }

  void End() {
    state.Close();
    for (const auto& pending : asked) {
      Require(pending->Settled(), "no request is left without an outcome");
      Outcome(*pending);
    }
    Require(state.Requests().Size() == 0 && state.Pushes().Waiting() == 0 && state.Pushes().Bytes() == 0,
            "nothing is left");
  }

 private:
  void Message(std::string_view text) {
    Incoming message = ReadIncoming(text, shapes);
    if (message.kind == Incoming::Kind::Malformed) {
      state.MessageUnusable(text, true, now);
      state.SessionLost("bad message", now);
      state.SessionOpened(now);
      return;
    }
    const bool push = message.kind == Incoming::Kind::Stream || message.kind == Incoming::Kind::Notification;
    const std::string uri = message.uri;
    const std::size_t waiting = state.Pushes().Waiting();
    state.Receive(std::move(message), now);
    if (push && state.Interests().Covers(uri)) {
      Require(state.Pushes().Waiting() > 0, "a push is never lost on arrival");
    } else if (push) {
      Require(state.Pushes().Waiting() == waiting, "what nobody asked for is not kept");
    }
  }

  void Act(std::string_view act) {
    const std::string uri(act.size() > 2 ? act.substr(2) : std::string_view());
    switch (act.empty() ? '\0' : act[0]) {
      case 'r':
        return Ask(ZoRequestMethod_Read, uri);
      case 's':
        return Ask(ZoRequestMethod_StartStream, uri);
      case 'x':
        return Ask(ZoRequestMethod_StopStream, uri);
      case 'n':
        return Ask(ZoRequestMethod_Sub, uri);
      case 'u':
        return Ask(ZoRequestMethod_UnSub, uri);
      case 't':
        now += std::chrono::milliseconds(700);
        state.Step(now);
        return;
      case 'g':
        if (!asked.empty()) {
          state.TimeOut(asked.back(), 1, now);
        }
        return;
      case 'l':
        state.SessionLost("cut", now);
        state.SessionOpened(now);
        return;
      default:
        for (const Push& push : state.Pushes().TakeDue(now, 10)) {
          Require(push.document.IsObject(), "a push is a document");
        }
        state.Pushes().Delivered(now);
        now += std::chrono::milliseconds(1);
    }
  }

  void Ask(ZoRequestMethod method, const std::string& uri) {
    auto pending = std::make_shared<ZoPendingRequest>();
    state.Request(method, uri, ComposeRequest(method, uri, nullptr), pending, now);
    asked.push_back(std::move(pending));
  }

  static void Outcome(const ZoPendingRequest& pending) {
    try {
      pending.Take().Payload();
    } catch (const std::exception& error) {
      Require(*error.what() != '\0', "an error says what it is");
    }
  }

  LinkState state;
  ZoJsonShapes shapes;
  Time now = Time{} + std::chrono::hours(1);
  std::vector<std::shared_ptr<ZoPendingRequest>> asked;
};

}  // namespace

void ReceiveScript(std::string_view script) {
  Play play;
  while (!script.empty()) {
    const std::size_t end = std::min(script.find('\n'), script.size());
    play.Line(script.substr(0, end));
    script.remove_prefix(std::min(end + 1, script.size()));
  }
  play.End();
}

}  // namespace ZoFuzz
