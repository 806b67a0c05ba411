#include "tests/support/pluginlibrary.h"

#include <dlfcn.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace ZoTest {
namespace {

std::vector<const char*> Pointers(const std::vector<std::string>& names) {
  std::vector<const char*> pointers;
  pointers.reserve(names.size() + 1);
  for (const std::string& name : names) {
    pointers.push_back(name.c_str());
  }
  if (pointers.empty()) {
    pointers.push_back(nullptr);  // an empty batch still has an address
  }
  return pointers;
}

}  // namespace

PluginLibrary::PluginLibrary() : PluginLibrary(BuiltPath()) {}

PluginLibrary::PluginLibrary(const std::string& file) : path(std::filesystem::weakly_canonical(file)) {
  library = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    throw std::runtime_error(std::string("dlopen: ") + ::dlerror());
  }
  createIoInstance = reinterpret_cast<CreateIoInstanceFunction>(Symbol("CreateIoInstance"));
  destroyIoInstance = reinterpret_cast<DestroyIoInstanceFunction>(Symbol("DestroyIoInstance"));
  getIoInfo = reinterpret_cast<GetIoInfoFunction>(Symbol("GetIoInfo"));
  readItem = reinterpret_cast<ReadItemFunction>(Symbol("ReadItem"));
  writeItem = reinterpret_cast<WriteItemFunction>(Symbol("WriteItem"));
  subscribeItems = reinterpret_cast<SubscribeItemsFunction>(Symbol("SubscribeItems"));
  unsubscribeItems = reinterpret_cast<UnsubscribeItemsFunction>(Symbol("UnsubscribeItems"));
  callMethod = reinterpret_cast<CallMethodFunction>(Symbol("CallMethod"));
}

PluginLibrary::~PluginLibrary() {
  Unload();
}

std::string PluginLibrary::BuiltPath() {
#ifdef ZOIO_PLUGIN_PATH
  return ZOIO_PLUGIN_PATH;
#else
  throw std::runtime_error("this build has no plug-in");
#endif
}

void PluginLibrary::Unload() {
  if (library == nullptr) {
    return;
  }
  createIoInstance = nullptr;
  destroyIoInstance = nullptr;
  getIoInfo = nullptr;
  readItem = nullptr;
  writeItem = nullptr;
  subscribeItems = nullptr;
  unsubscribeItems = nullptr;
  callMethod = nullptr;
  ::dlclose(library);
  library = nullptr;
}

bool PluginLibrary::IsMapped() const {
  return IsMapped(path);
}

bool PluginLibrary::IsMapped(const std::string& path) {
  std::ifstream maps("/proc/self/maps");
  const std::string wanted = std::filesystem::weakly_canonical(path);
  for (std::string line; std::getline(maps, line);) {
    if (line.ends_with(" " + wanted)) {
      return true;
    }
  }
  return false;
}

void* PluginLibrary::Symbol(const char* name) const {
  void* symbol = ::dlsym(library, name);
  if (symbol == nullptr) {
    throw std::runtime_error(std::string("dlsym: ") + ::dlerror());
  }
  return symbol;
}

int Subscribe(const PluginLibrary& plugin, void* handle, long long interval,
              const std::vector<std::string>& names, std::vector<int>* results) {
  std::vector<int> codes(names.size() + 1, -1);
  const int result = plugin.subscribeItems(interval, static_cast<int>(names.size()), Pointers(names).data(),
                                           codes.data(), handle);
  codes.resize(names.size());
  if (results != nullptr) {
    *results = codes;
  }
  return result;
}

int Unsubscribe(const PluginLibrary& plugin, void* handle, const std::vector<std::string>& names) {
  return plugin.unsubscribeItems(static_cast<int>(names.size()), Pointers(names).data(), handle);
}

}  // namespace ZoTest
