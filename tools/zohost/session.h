// One instance of the plug-in, as the commands use it: the exports with a host's manners around them.
//
// Threads: main thread only; the plug-in's own threads meet the inbox alone.
// Owner: a command, inside the life of the Plugin.
// Invariant: the instance lives exactly as long as the session; when the destructor returns, no callback
// runs.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/zohost/inbox.h"
#include "tools/zohost/plugin.h"
#include "tools/zohost/value.h"

namespace zohost {

// The plug-in refused to make an instance. Carries what it logged meanwhile.
class InstanceRefused : public std::runtime_error {
 public:
  InstanceRefused(const std::string& text, std::vector<LogLine> lines)
      : std::runtime_error(text), log(std::move(lines)) {}
  std::vector<LogLine> log;
};

class Session {
 public:
  // Blocks while the plug-in connects. Raises InstanceRefused.
  Session(const Plugin& plugin, const std::string& address, std::uint16_t port);
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;
  ~Session();

  // Ends the instance early, so that its last log lines can still be taken.
  void Close();

  // False: refused.
  bool Read(const std::string& item);
  bool Write(const std::string& item, const Value& value);
  bool Call(const std::string& method, const std::string& arguments);
  // Subscribes the items; the answer names those that were refused, in their order.
  std::vector<std::string> Subscribe(const std::vector<std::string>& items,
                                     std::chrono::milliseconds interval);
  bool Unsubscribe(const std::vector<std::string>& items);

  // What the callbacks brought since the last time.
  Delivery Take() { return inbox_.Take(); }
  int WakeUpNumber() const { return inbox_.WakeUpNumber(); }

 private:
  const Plugin& plugin_;
  Inbox inbox_;
  void* handle_ = nullptr;
};

}  // namespace zohost
