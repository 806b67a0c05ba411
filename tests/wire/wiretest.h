// The fixture of tests with the plug-in at one end of a socket and a sensor at the other.
//
// Threads and owner: as PluginTest. The sensor is a member of each test's own, made before its instances and
// gone before them, or after: the plug-in must bear both.
#pragma once

#include <string>
#include <vector>

#include "tests/plugin/plugintest.h"

namespace ZoTest {

class WireTest : public PluginTest {
 protected:
  // An instance that must be connected.
  void* Connect(unsigned short port);
  void* Connect(unsigned short port, Recorder& host);

  // Whether the instance's sensor is connected now. (Asked with an empty batch, which leaves a log line.)
  bool IsConnected(void* handle) { return Unsubscribe(handle, {}) == 0; }
  bool WaitConnected(void* handle, bool connected);

  // The value that reading delivers, as Describe writes it; "refused" when it is.
  std::string ValueOf(void* handle, const std::string& name);
  // Reads until the item is there.
  bool WaitReadable(void* handle, const std::string& name);

  // True once the item has been delivered with values that differ, counting from a moment (or from now).
  bool WaitForChange(const Recorder& host, const std::string& name, Clock::time_point since) const;
  bool WaitForChange(const std::string& name) const { return WaitForChange(recorder, name, Clock::now()); }

  // The messages of one function, in order.
  std::vector<std::string> MessagesOf(const std::string& function) const;
};

}  // namespace ZoTest
