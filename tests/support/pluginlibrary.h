// The plug-in as a host sees it: a dynamic library, loaded at run time, with eight functions.
//
// Threads: load and unload on one thread; the functions may be called from any thread in between.
// Owner: the test. The destructor unloads.
#pragma once

#include <string>
#include <vector>

#include "xhmi/iohandler.h"

namespace ZoTest {

class PluginLibrary {
 public:
  // Loads the plug-in of this build, or another file. Raises std::runtime_error with the loader's text.
  PluginLibrary();
  explicit PluginLibrary(const std::string& path);
  ~PluginLibrary();
  PluginLibrary(const PluginLibrary&) = delete;
  PluginLibrary& operator=(const PluginLibrary&) = delete;

  // The plug-in of this build.
  static std::string BuiltPath();

  // The eight exports; null after Unload.
  CreateIoInstanceFunction createIoInstance = nullptr;
  DestroyIoInstanceFunction destroyIoInstance = nullptr;
  GetIoInfoFunction getIoInfo = nullptr;
  ReadItemFunction readItem = nullptr;
  WriteItemFunction writeItem = nullptr;
  SubscribeItemsFunction subscribeItems = nullptr;
  UnsubscribeItemsFunction unsubscribeItems = nullptr;
  CallMethodFunction callMethod = nullptr;

  // Unloads the library; does nothing the second time.
  void Unload();
  // Whether the file is in the process's map, whoever holds it.
  bool IsMapped() const;
  static bool IsMapped(const std::string& path);

  const std::string& Path() const { return path; }

 private:
  void* Symbol(const char* name) const;

  std::string path;
  void* library = nullptr;
};

// Convenience for single names; the plug-in's own results.
int Subscribe(const PluginLibrary& plugin, void* handle, long long interval,
              const std::vector<std::string>& names, std::vector<int>* results = nullptr);
int Unsubscribe(const PluginLibrary& plugin, void* handle, const std::vector<std::string>& names);

}  // namespace ZoTest
