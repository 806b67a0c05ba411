#include "tools/zohost/session.h"

#include <fmt/format.h>

#include <algorithm>

#include "tools/zohost/text.h"

namespace zohost {
namespace {

constexpr int notWritten = -1;
constexpr int refused = 6;

std::vector<const char*> Pointers(const std::vector<std::string>& texts) {
  std::vector<const char*> pointers(texts.size());
  std::transform(texts.begin(), texts.end(), pointers.begin(), [](const auto& text) { return text.c_str(); });
  return pointers;
}

}  // namespace

Session::Session(const Plugin& plugin, const std::string& address, std::uint16_t port) : plugin_(plugin) {
  const ioHandlerParam param = inbox_.Callbacks();
  void* handle = nullptr;
  if (plugin_.createIoInstance(address.c_str(), port, &param, &handle) != 0 || handle == nullptr) {
    inbox_.WaitUntilIdle();
    throw InstanceRefused(fmt::format("the plug-in made no instance for \"{}\".", Printable(address)),
                          inbox_.Take().log);
  }
  handle_ = handle;
}

Session::~Session() {
  Close();
}

void Session::Close() {
  if (handle_ != nullptr) {
    plugin_.destroyIoInstance(handle_);
    handle_ = nullptr;
    inbox_.WaitUntilIdle();
  }
}

bool Session::Read(const std::string& item) {
  return plugin_.readItem(item.c_str(), handle_) == 0;
}

bool Session::Write(const std::string& item, const Value& value) {
  const ioDataValue record = value.ToRecord();
  return plugin_.writeItem(item.c_str(), &record, 0, handle_) == 0;
}

bool Session::Call(const std::string& method, const std::string& arguments) {
  return plugin_.callMethod(nullptr, nullptr, method.c_str(), arguments.c_str(), handle_) == 0;
}

std::vector<std::string> Session::Subscribe(const std::vector<std::string>& items,
                                            std::chrono::milliseconds interval) {
  const std::vector<const char*> names = Pointers(items);
  std::vector<int> results(items.size(), notWritten);
  plugin_.subscribeItems(interval.count(), static_cast<int>(names.size()), names.data(), results.data(),
                         handle_);
  std::vector<std::string> failed;
  for (std::size_t index = 0; index < items.size(); ++index) {
    if (results[index] == notWritten || results[index] == refused) {
      failed.push_back(items[index]);
    }
  }
  return failed;
}

bool Session::Unsubscribe(const std::vector<std::string>& items) {
  const std::vector<const char*> names = Pointers(items);
  return plugin_.unsubscribeItems(static_cast<int>(names.size()), names.data(), handle_) == 0;
}

}  // namespace zohost
