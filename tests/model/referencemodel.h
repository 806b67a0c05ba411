// The model: what a host must see of an instance, step by step, written for the reader and not for the clock.
//
// It keeps the items, the cached documents, the groups of subscriptions and the counts of streams and
// subscriptions, all as plain values in plain maps, and says for each step what it results in, which lines are
// logged, which values are delivered and which requests reach the sensor, in their order.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "tests/model/item.h"
#include "tests/model/scriptedsensor.h"
#include "tests/model/steps.h"

namespace ZoModel {

// What came of a step, as texts that can be compared and shown.
struct Outcome {
  std::string result;
  std::vector<std::string> events;  // lines, values, responses and requests
  std::vector<std::string> state;   // of items, registry and cache

  // Of two outcomes what differs; nothing if they are the same.
  static std::string Compare(const Outcome& plugin, const Outcome& model);

  friend bool operator==(const Outcome&, const Outcome&) = default;
};

class ReferenceModel {
 public:
  // now: µs since the epoch.
  explicit ReferenceModel(long long now);
  virtual ~ReferenceModel();

  Outcome Perform(const Step& step);
  // The instance is destroyed.
  Outcome End();

 protected:
  struct Entry {
    Variant lastValue;
    bool forced = true;
  };
  struct Group {
    long long due;  // ns
    std::map<std::string, Entry> entries;
  };
  using Versions = std::map<long long, Document>;  // by time, ms

  // Each gives the step's result.
  std::string Do(const Subscribe& step);
  std::string Do(const Unsubscribe& step);
  std::string Do(const Read& step);
  std::string Do(const Write& step);
  std::string Do(const Call& step);
  std::string Do(const MonitorPass& step);
  std::string Do(const RetryPass& step);
  std::string Do(const Trim& step);
  std::string Do(const LookUp& step);
  std::string Do(const Recreate& step);
  std::string Do(const Push& step);
  std::string Do(const Hold& step);
  std::string Do(const Answers& step);
  std::string Do(const Connection& step);
  std::string Do(const Clock& step);

  // The registry.
  virtual Item& ItemOf(const std::string& name);
  bool Look(const Item& item);
  virtual void Retry();

  // The cache.
  void Add(const std::string& uri, const Document& document);
  const Document* Newest(const std::string& uri) const;

  // Streams and subscriptions of the sensor.
  unsigned SubscribeName(Group& group, const std::string& name);
  void SubscribeItem(Item& item);
  void SubscribePattern(const Item& item);
  void UnsubscribeName(const std::string& name);
  void UnsubscribeItem(Item& item);

  // Values.
  void Tick(Group& group, long long interval);
  void UpdateResource(const std::string& uri);
  void Deliver(const Item& item);
  bool Send(const Item& item, const Document& value);
  Document Dispatch(const Call& step);
  Document Forward(const Call& step);

  // The sensor, as the sensor manager shows it.
  virtual bool IsConnected() const { return sensor.IsConnected(); }
  virtual Answer Ask(const std::string& verb, const std::string& uri, const std::string& body = "",
                     bool patient = false);
  virtual bool IsRunning() { return running; }
  virtual void StartSensor();
  virtual void StopSensor();
  // What the sensor manager says of its own end.
  virtual void EndSensor() {}

  void Log(int level, const std::string& function, const std::string& text);
  std::vector<std::string> State() const;

  long long now;
  std::map<std::string, Item> items;
  std::vector<std::string> waiting;  // names of items that were not found
  std::map<std::string, Versions> cache;
  std::map<long long, Group> groups;
  std::map<std::string, int> streams;        // users of a resource
  std::map<std::string, int> subscriptions;  // users of a pattern
  std::vector<std::string> events;

 private:
  ScriptedSensor sensor;
  bool running = false;  // its acquisition
};

}  // namespace ZoModel
