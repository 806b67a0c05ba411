#include "tools/zohost/plugin.h"

#include <dlfcn.h>
#include <fmt/format.h>

#include <filesystem>
#include <system_error>

namespace zohost {
namespace {

constexpr const char* defaultName = "ZoIoHandler.so";

bool Exists(const std::filesystem::path& file) {
  std::error_code ignored;
  return std::filesystem::exists(file, ignored);
}

// What to hand to the loader: with a slash it opens exactly that file, without one it searches its path.
std::string Locate(const std::string& file) {
  namespace fs = std::filesystem;
  if (file.empty()) {
    std::error_code error;
    const fs::path program = fs::read_symlink("/proc/self/exe", error);
    const fs::path beside = program.parent_path() / defaultName;
    return !error && Exists(beside) ? beside.string() : defaultName;
  }
  if (file.find('/') == std::string::npos && Exists(file)) {
    return "./" + file;
  }
  return file;
}

template <typename Function>
void Resolve(void* library, const char* name, Function& function, std::string& missing) {
  function = reinterpret_cast<Function>(dlsym(library, name));
  if (function == nullptr) {
    missing.append(missing.empty() ? "" : ", ").append(name);
  }
}

}  // namespace

void Plugin::Unload::operator()(void* library) const {
  dlclose(library);
}

Plugin::Plugin(const std::string& file) : file_(Locate(file)) {
  // Everything is bound now, so a plug-in that lacks a symbol fails here and not in the middle of a call.
  library_.reset(dlopen(file_.c_str(), RTLD_NOW | RTLD_LOCAL));
  if (library_ == nullptr) {
    const char* reason = dlerror();
    const bool searched = file.empty() && file_ == defaultName;
    throw PluginError(
        fmt::format("the plug-in cannot be loaded: {}{}.", reason == nullptr ? file_ : reason,
                    searched ? " (it is not beside zohost either; name it with --plugin FILE)" : ""));
  }
  std::string missing;
  Resolve(library_.get(), "CreateIoInstance", createIoInstance, missing);
  Resolve(library_.get(), "DestroyIoInstance", destroyIoInstance, missing);
  Resolve(library_.get(), "GetIoInfo", getIoInfo, missing);
  Resolve(library_.get(), "ReadItem", readItem, missing);
  Resolve(library_.get(), "WriteItem", writeItem, missing);
  Resolve(library_.get(), "SubscribeItems", subscribeItems, missing);
  Resolve(library_.get(), "UnsubscribeItems", unsubscribeItems, missing);
  Resolve(library_.get(), "CallMethod", callMethod, missing);
  if (!missing.empty()) {
    throw PluginError(fmt::format("{} is no IO-handler plug-in: it does not export {}.", file_, missing));
  }
}

}  // namespace zohost
