// What tests of the link share: a fake sensor, a system that talks to it, and a record of what it pushed.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "qapi/address.h"
#include "tests/sdk/fakesensor.h"
#include "tests/support/deadline.h"
#include "zovyrnsdk/zosystem.h"

namespace ZoTest {

inline constexpr std::uint64_t second = 1000000;  // in the unit of GetResponse
inline constexpr std::uint64_t patience = 30 * second;

qIpAddress Loopback();

// A push as a handler got it.
struct Arrival {
  bool stream = false;
  std::string uri;
  ZoJson payload;
  Clock::time_point time;
  std::thread::id thread;
};

// Records pushes. Any thread. Must outlive the system whose handlers it gave.
class PushRecord {
 public:
  void ListenTo(ZoSystem& system);
  // Called on the handler's thread after the arrival is recorded, without a lock.
  void SetHook(std::function<void(const Arrival&)> hook);

  std::vector<Arrival> All() const;
  std::size_t Count() const;
  bool WaitFor(const std::function<bool(const std::vector<Arrival>&)>& predicate) const;
  bool WaitForCount(std::size_t count) const;

 private:
  void Add(bool stream, const ZoResponse& response);

  mutable std::mutex mutex;
  mutable std::condition_variable changed;
  std::vector<Arrival> arrivals;
  std::function<void(const Arrival&)> hook;
};

class LinkTest : public testing::Test {
 protected:
  LinkTest() : system(Loopback(), sensor.Port()) { pushes.ListenTo(system); }

  ZoTransaction Read(const std::string& uri) { return system.Client().Read(uri, ZoJson(), ZoJson()); }
  ZoTransaction StartStream(const std::string& uri) {
    return system.Client().StartStream(uri, ZoJson(), ZoJson());
  }
  ZoTransaction StopStream(const std::string& uri) {
    return system.Client().StopStream(uri, ZoJson(), ZoJson());
  }
  ZoTransaction Sub(const std::string& uri) { return system.Client().Sub(uri, ZoJson(), ZoJson()); }
  ZoTransaction UnSub(const std::string& uri) { return system.Client().UnSub(uri, ZoJson(), ZoJson()); }

  // Declared behind what responders, scripts and hooks use, it ends all of those first.
  struct EndFirst {
    explicit EndFirst(LinkTest& test) : test(test) {}
    EndFirst(const EndFirst&) = delete;
    EndFirst& operator=(const EndFirst&) = delete;
    ~EndFirst() {
      test.system.Disconnect();
      test.sensor.End();
    }
    LinkTest& test;
  };

  // The text of the exception that the request ends with; empty when it ends with an answer.
  static std::string FailureOf(ZoTransaction transaction, std::uint64_t limit = patience);
  // The status of the refusal that the request ends with; 0 when it ends otherwise.
  static int RefusalOf(ZoTransaction transaction, std::uint64_t limit = patience);

  // Waits for IsConnected to say so, which nothing announces.
  bool WaitConnected(bool connected) const;

  // A push as the sensor sends it.
  static std::string PushText(const std::string& event, const std::string& uri, const std::string& payload);

  FakeSensor sensor;
  PushRecord pushes;
  ZoSystem system;
};

}  // namespace ZoTest
