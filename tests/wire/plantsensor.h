// A scripted sensor with two resources, whose bytes are the same each time: "/p", which it streams, and "/q", of which
// it only notifies. Both hold {"v": number}.
//
// Says of a resource only what its session has asked for, so that what a link forgets to ask for again stays unheard.
// Threads: any. Owner: the test. Lock: its own, held while it sends, so that pushes and answers come in their order.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <set>
#include <string>

#include "tests/sdk/fakesensor.h"

namespace ZoTest {

class PlantSensor {
 public:
  PlantSensor();
  PlantSensor(const PlantSensor&) = delete;
  PlantSensor& operator=(const PlantSensor&) = delete;

  std::uint16_t Port() const { return sensor.Port(); }

  // Changes a resource, and pushes it to a session that wants to know.
  void Set(const std::string& uri, int value);
  // Changes it while nobody hears.
  void SetUnheard(const std::string& uri, int value);
  // Ends the newest session without a word.
  void Drop();
  int ValueOf(const std::string& uri) const;
  // What the newest session is served now: streams by their URI, subscriptions by their pattern.
  std::set<std::string> Served() const;

 private:
  void Serve(FakePeer& peer);
  void Answer(FakePeer& peer, const FakeRequest& request);
  std::string Members(FakePeer& peer, const FakeRequest& request);
  void PushChange(const std::string& uri);
  void Push(const std::string& event, const std::string& uri);
  std::string Content(const std::string& uri) const;

  mutable std::mutex mutex;
  std::map<std::string, int> values{{"/p", 1}, {"/q", 2}};  // guarded by mutex, like the rest
  FakePeer* newest = nullptr;                               // that shook hands, while it is there
  unsigned newestNumber = 0;
  std::set<std::string> served;  // of it

  FakeSensor sensor;  // last: its threads use the rest
};

}  // namespace ZoTest
