// A loaded IO-handler plug-in: the library and its eight exports.
//
// Threads: constructed and destroyed on the main thread; the exports may be called from any.
// Owner: main. It must outlive every session, and every callback must have returned before it goes.
// Invariant: all eight pointers are set.
#pragma once

#include <memory>
#include <stdexcept>
#include <string>

#include "xhmi/iohandler.h"

namespace zohost {

// The plug-in cannot be loaded, or is none; what() is a sentence with the file's name.
class PluginError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class Plugin {
 public:
  // An empty file name stands for ZoIoHandler.so beside this program or, if there is none, wherever the
  // loader finds it. A name without a slash is tried in the current directory before the loader's path.
  explicit Plugin(const std::string& file);
  Plugin(const Plugin&) = delete;
  Plugin& operator=(const Plugin&) = delete;

  const std::string& File() const { return file_; }

 private:
  struct Unload {
    void operator()(void* library) const;
  };
  std::string file_;
  std::unique_ptr<void, Unload> library_;

 public:
  CreateIoInstanceFunction createIoInstance = nullptr;
  DestroyIoInstanceFunction destroyIoInstance = nullptr;
  GetIoInfoFunction getIoInfo = nullptr;
  ReadItemFunction readItem = nullptr;
  WriteItemFunction writeItem = nullptr;
  SubscribeItemsFunction subscribeItems = nullptr;
  UnsubscribeItemsFunction unsubscribeItems = nullptr;
  CallMethodFunction callMethod = nullptr;
};

}  // namespace zohost
