// An emulated sensor with faults, and the SDK at the other end: what they promise each other in all of them.
//
// Threads and owner: as ServerFixture; one system, with a stream and a subscription.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "tests/sdk/linkfixture.h"
#include "tests/zosensor/serverfixture.h"
#include "zovyrnsdk/zorequesterror.h"
#include "zovyrnsdk/zosystem.h"

namespace ZoTest {

inline constexpr const char* FaultyResources = R"({"rate_hz": 100, "resources": {
  "/r/0": {"content": {"v": 100}}, "/r/1": {"content": {"v": 101}},
  "/r/2": {"content": {"v": 102}}, "/r/3": {"content": {"v": 103}},
  "/set": {"content": {"v": 0}, "writable": true},
  "/wave": {"content": {"n": 0}, "waves": {"/n": {"wave": "counter"}}},
  "/ticks": {"content": {"n": 0}, "waves": {"/n": {"wave": "counter"}}}}})";

inline constexpr int ReadCount = 4;  // of the resources /r/0 ...

enum class Outcome { Right, Refused, Failed };

class FaultySensor : public ZoSensor::ServerFixture {
 protected:
  using Settings = std::vector<std::pair<std::string, std::string>>;

  ~FaultySensor() override { system.Disconnect(); }

  // faults: as from the command line. Connects, and asks for a stream and a subscription.
  void Begin(const Settings& faults = {}) {
    for (const auto& [name, value] : faults) {
      std::string objection;
      const auto next = options.faults.With(name + "=" + value, objection);
      ASSERT_TRUE(next) << objection;
      options.faults = *next;
    }
    Start({}, FaultyResources);
    system = ZoSystem(Loopback(), port);
    pushes.ListenTo(system);
    system.Connect();
    Client().StartStream("/wave", ZoJson(), ZoJson()).GetResponse(patience);
    Client().Sub("/set/*", ZoJson(), ZoJson()).GetResponse(patience);
    ASSERT_TRUE(pushes.WaitFor([](const auto& all) { return !all.empty(); }));
  }

  ZoRestClient& Client() { return system.Client(); }

  // Beside the SDK. A connection of this, too, may be cut on purpose: until it is answered.
  ZoJson AskSensor(const std::string& method, const std::string& path, const std::string& body = "") const {
    const Deadline deadline;
    ZoSensor::HttpAnswer answer;
    while (answer.status == 0 && !deadline.Expired()) {
      answer = Rest(method, path, body);
    }
    EXPECT_EQ(answer.status, 200U) << method << " " << path << " " << answer.body;
    return ZoJson::ParseString(answer.status == 200 ? answer.body : "{}");
  }
  void SwitchOn(const Settings& faults) const {
    std::string members;
    for (const auto& [name, value] : faults) {
      const bool text = name == "only";
      members += fmt::format("{}\"{}\":{}", members.empty() ? "" : ",", name,
                             text ? ZoJson::Of(value).ToString() : value);
    }
    AskSensor("PATCH", "/faults", "{" + members + "}");
  }
  void SwitchOff() const { AskSensor("POST", "/faults/reset"); }
  // How far /wave is; asked of its twin, which faults may be told to spare.
  int SamplesOfSensor() const { return AskSensor("GET", "/ticks").At("payload/n").Get<int>(); }

  // What becomes of a request; anything but the right value and a sentence is a failure of the test.
  Outcome OutcomeOf(ZoTransaction transaction, const std::string& expected) const {
    try {
      const ZoRequestResponse response = transaction.GetResponse(limit);
      EXPECT_EQ(response.Payload().ToString(), expected) << transaction.GetRequest().Uri();
      EXPECT_EQ(response.Path(), transaction.GetRequest().Uri());
      return Outcome::Right;
    } catch (const ZoRequestError& error) {
      EXPECT_LT(error.GetResponse().Raw().At("status").Get<int>(), 0);
      EXPECT_GT(std::string(error.what()).size(), 10U);
      return Outcome::Refused;
    } catch (const std::exception& error) {
      EXPECT_GT(std::string(error.what()).size(), 10U);
      return Outcome::Failed;
    }
  }

  // Reads of all of /r, sent before the first answer is taken.
  std::vector<Outcome> ReadAll() {
    std::vector<ZoTransaction> transactions;
    for (int i = 0; i < ReadCount; ++i) {
      transactions.push_back(Client().Read(fmt::format("/r/{}", i), ZoJson(), ZoJson()));
    }
    std::vector<Outcome> outcomes;
    for (int i = 0; i < ReadCount; ++i) {
      outcomes.push_back(
          OutcomeOf(transactions[static_cast<std::size_t>(i)], fmt::format(R"({{"v":{}}})", 100 + i)));
    }
    return outcomes;
  }

  // Reads are right, the stream brings new samples, and the subscription a new change.
  void ExpectAllIsWell() {
    const Deadline deadline;
    const std::vector<Outcome> right(ReadCount, Outcome::Right);
    std::vector<Outcome> outcomes = ReadAll();
    while (outcomes != right && !deadline.Expired()) {
      outcomes = ReadAll();
    }
    EXPECT_EQ(outcomes, right);
    EXPECT_TRUE(system.IsConnected());
    const int samples = SamplesOfSensor();
    EXPECT_TRUE(pushes.WaitFor([&](const std::vector<Arrival>& all) {
      return std::any_of(all.rbegin(), all.rend(), [&](const Arrival& each) {
        return each.stream && each.uri == "/wave" && each.payload.At("n").Get<int>() > samples;
      });
    }));
    const int change = ++changes;
    EXPECT_EQ(OutcomeOf(Client().Update("/set", ZoJson::ParseString(fmt::format(R"({{"v":{}}})", change)),
                                        ZoJson()),
                        "null"),
              Outcome::Right);
    EXPECT_TRUE(pushes.WaitFor([&](const std::vector<Arrival>& all) {
      return std::any_of(all.rbegin(), all.rend(), [&](const Arrival& each) {
        return !each.stream && each.uri == "/set" && each.payload.At("v").Get<int>() == change;
      });
    }));
  }

  std::uint64_t limit = patience;  // of one request; for those that are never answered it may be short
  PushRecord pushes;
  ZoSystem system;
  int changes = 0;
};

}  // namespace ZoTest
