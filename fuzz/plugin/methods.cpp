#include "fuzz/plugin/methods.h"

#include <algorithm>
#include <array>
#include <optional>
#include <stdexcept>
#include <string>

#include "fuzz/json/require.h"
#include "fuzz/plugin/hosted.h"
#include "xhmi/iohandler.h"
#include "zovyrnsdk/link/outgoing.h"

namespace ZoFuzz {

namespace {

enum class State { Idle, Running, Offline };

std::string TakeLine(std::string_view& text) {
  const std::size_t end = std::min(text.find('\n'), text.size());
  const std::string line(text.substr(0, end));
  text.remove_prefix(std::min(end + 1, text.size()));
  return line;
}

// A host's texts end with their first zero byte.
std::string AsHostsText(const std::string& text) {
  return text.c_str();
}

std::optional<ZoJson> Parsed(std::string_view text) {
  try {
    return ZoJson::ParseString(text);
  } catch (const ZoJsonError&) {
    return std::nullopt;
  }
}

// A member that must be a text.
std::optional<std::string> TextAt(const ZoJson& arguments, const char* member) {
  if (!arguments.HasKey(member) || !arguments.At(member).IsString()) {
    return std::nullopt;
  }
  return arguments.At(member).Get<std::string>();
}

struct Answer {
  explicit Answer(std::string_view line)
      : fault(line.starts_with('!') && ZoSdk::IsUtf8(line) ? std::optional<std::string>(line.substr(1))
                                                           : std::nullopt),
        document(Parsed(line).value_or(ZoJson())) {}

  ZoJson Give() const {
    if (fault) {
      throw std::runtime_error(*fault);
    }
    return document;
  }
  // What a method makes of it.
  ZoJson Data() const { return fault ? ZoJson::Of(fault->c_str()) : document; }

  std::optional<std::string> fault;
  ZoJson document;
};

// What the documents say of a call: whether it is answered, what it asks the sensor, and what is in "data".
struct Expectation {
  Expectation(const std::string& method, const std::optional<ZoJson>& arguments, const Answer& answer,
              State state) {
    if (state == State::Offline || !arguments || !arguments->IsObject()) {
      return;
    }
    if (method == "RunSensor" || method == "StopSensor") {
      Acquisition(method == "RunSensor", state == State::Running, answer);
    } else if (method == "Read" || method == "Delete") {
      answered = true;
      Ask(method, TextAt(*arguments, "/uri"), ZoJson(), answer);
    } else if (method == "Create" || method == "Update" || method == "Call") {
      answered = true;
      const std::optional<std::string> text = TextAt(*arguments, "/args");
      const std::optional<ZoJson> parsed = text ? Parsed(*text) : std::nullopt;
      Ask(method, parsed ? TextAt(*arguments, "/uri") : std::nullopt, parsed.value_or(ZoJson()), answer);
    }
  }

  void Acquisition(bool start, bool running, const Answer& answer) {
    const bool needed = start != running;
    request = needed ? std::optional<std::string>(start ? "Start " : "Stop ") : std::nullopt;
    answered = !needed || !answer.fault;
    data = ZoJson::EmptyObject();
    data->Set("result", needed ? "OK" : start ? "Already running." : "Not running");
  }

  void Ask(const std::string& verb, const std::optional<std::string>& uri, const ZoJson& sent,
           const Answer& answer) {
    if (uri) {
      request = verb + " " + *uri;
      payload = sent;
      data = answer.Data();
    }
  }

  bool answered = false;
  std::optional<std::string> request;  // none where nothing may be sent
  ZoJson payload;
  std::optional<ZoJson> data;  // none where it is a text that says what was wrong
};

// One instance for all inputs: a call leaves nothing behind but what is set anew here.
class Bench {
 public:
  void Play(const std::string& method, const Answer& answer, const std::string& arguments, State state) {
    Prepare(answer, state);
    const Expectation expected(method, Parsed(arguments), answer, state);
    const int result = CallMethod(&token, nullptr, method.c_str(), arguments.c_str(), hosted.Handle());
    Require(result == (expected.answered ? 0 : 1), "the result is 0 for what is answered, else 1");
    CheckRequests(expected);
    CheckResponses(expected, Parsed(arguments));
    const std::size_t lines = hosted.Listener().TakeLines();
    Require((state == State::Offline) == (lines == 0), "a call of a connected sensor is logged");
    Require(hosted.Listener().TakeValues().empty(), "a call delivers no value");
  }

 private:
  void Prepare(const Answer& answer, State state) {
    for (const char* verb : {"Start", "Stop", "Read", "Delete", "Create", "Update", "Call"}) {
      hosted.Fake()->SetScript(verb, [&answer](const auto&) { return answer.Give(); });
    }
    hosted.Fake()->SetRunning(state == State::Running);
    hosted.Fake()->SetConnected(state != State::Offline);
    hosted.Fake()->ClearCalls();
    hosted.Listener().TakeLines();
  }

  void CheckRequests(const Expectation& expected) {
    const auto calls = hosted.Fake()->Calls();
    Require(calls.size() == (expected.request ? 1 : 0), "the sensor is asked once, or not at all");
    if (expected.request) {
      Require(calls[0].Text() == *expected.request, "the sensor is asked what the host said");
      Require(calls[0].payload == expected.payload, "the sensor gets what the host sent");
    }
  }

  void CheckResponses(const Expectation& expected, const std::optional<ZoJson>& arguments) {
    const auto responses = hosted.Listener().TakeResponses();
    Require(responses.size() == (expected.answered ? 1 : 0), "one response for the result 0, else none");
    for (const Host::Response& response : responses) {
      Require(response.token == &token, "the token is handed back");
      const ZoJson id = arguments->HasKey("/id") ? arguments->At("/id") : ZoJson();
      Require(response.document.At("/id") == (id.IsPrimitive() ? id : ZoJson()), "the id is echoed");
      const ZoJson data = ZoJson::ParseString(response.document.At("/data").Get<std::string>());
      Require(expected.data ? data == *expected.data : data.IsString() && data.Get<std::string>() != "",
              "data is the answer, or says what was wrong");
    }
  }

  const int token = 0;
  Hosted hosted;
};

}  // namespace

void PlayMethod(std::string_view script) {
  static Bench bench;
  const std::string method = AsHostsText(TakeLine(script));
  const Answer answer(TakeLine(script));
  const std::string arguments = AsHostsText(std::string(script));
  for (const State state : {State::Idle, State::Running, State::Offline}) {
    bench.Play(method, answer, arguments, state);
  }
}

}  // namespace ZoFuzz
