// A place for one instance, with what a host may know about it: every call of an export is held against that.
//
// A name that is none stands for a null pointer. Without an instance the handle is null.
// Threads: one. Each operation aborts when a promise is broken.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "fuzz/plugin/hosted.h"

namespace ZoFuzz {

class Seat {
 public:
  using Name = std::optional<std::string>;
  enum class Batch { Whole, NoNames, NoResults, Negative };

  bool IsTaken() const { return hosted != nullptr; }
  void Create(Hosted::Kind kind, bool hasValues, bool hasResponses);
  // Refused where nobody sits.
  void Destroy();

  void Read(const Name& name);
  // value: null for a null pointer.
  void Write(const Name& name, const ioDataValue* value);
  void Subscribe(long long interval, const std::vector<Name>& names, Batch batch);
  void Unsubscribe(const std::vector<Name>& names, Batch batch);
  void Call(const Name& method, const Name& arguments);

  // A pass of the monitor, of the registry's worker, of the cache's, of the simulator's.
  void Pass();
  void Retry();
  void Trim();
  void Simulate();

  // The sensor's side; a simulator has none that could be changed.
  void SetConnected(bool value);
  void SetContent(const std::string& uri, const ZoJson& payload);
  void SetAnswer(const std::string& verb, const ZoJson& answer);
  void Push(const std::string& uri, const ZoJson& payload);

 private:
  using Groups = std::map<long long, std::map<std::string, bool>>;

  void* Handle() const { return hosted == nullptr ? nullptr : hosted->Handle(); }
  bool IsConnected() const { return hosted != nullptr && connected; }
  ZoTest::FakeSensorManager* Fake() const { return hosted == nullptr ? nullptr : hosted->Fake(); }
  bool IsValid(const std::string& name) const;

  // Around each call: forgets what came before; holds the result, and what the host was told, against what may be.
  void Begin();
  void CheckRefused(int result);
  void CheckNoValues();
  void CheckNoResponses();
  void CheckValue(const Host::Value& value) const;
  void CheckUpdate(const std::string& name, const ioDataValue& value, bool wasValid, int result) const;
  // Of the sensor's requests, those of this verb went to these resources, in this order.
  void CheckStreams(const char* verb, const std::vector<std::string>& resources) const;
  void CheckBatch(long long interval, const std::vector<Name>& names, const std::vector<int>& results,
                  int result);

  std::unique_ptr<Hosted> hosted;
  bool connected = true;
  Groups groups;                     // by interval: what is subscribed, and whether a pass has shown it
  std::map<std::string, int> users;  // by resource: how many subscriptions keep its stream
  std::shared_ptr<int> readsLeft = std::make_shared<int>(0);  // of the registry's worker
};

}  // namespace ZoFuzz
