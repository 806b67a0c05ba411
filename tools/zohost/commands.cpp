#include "tools/zohost/commands.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>

#include "tools/zohost/text.h"

namespace zohost {
namespace {

std::string Shown(const char* text) {
  return text == nullptr ? "(none)" : Printable(text);
}

// Reads one item and takes its value out of what the callbacks brought.
std::optional<Value> ReadOne(Session& session, Console& console, const std::string& item) {
  const bool delivered = session.Read(item);
  const Delivery delivery = session.Take();
  console.Absorb(delivery);
  const auto last = std::find_if(delivery.updates.rbegin(), delivery.updates.rend(),
                                 [&](const Update& update) { return update.item == item; });
  if (!delivered || last == delivery.updates.rend()) {
    return std::nullopt;
  }
  return last->value;
}

}  // namespace

Status RunInfo(const Plugin& plugin, Console& console) {
  const ioInfo* info = plugin.getIoInfo();
  if (info == nullptr) {
    console.Refuse(fmt::format("{} gives no description of itself.", plugin.File()), "");
    return Status::refused;
  }
  console.Print(fmt::format("{:<12} {}", "Name", Shown(info->name)));
  console.Print(fmt::format("{:<12} {}", "Description", Shown(info->description)));
  console.Print(fmt::format("{:<12} {}", "File", Printable(plugin.File())));
  console.Print(fmt::format("{:<12} {:#x} {:#010x} {:#x} {:#010x} {:#x} {:#x}", "Words", info->word0,
                            info->word1, info->word2, info->word3, info->word4, info->word5));
  const std::uint64_t count = info->params == nullptr ? 0 : info->paramCount;
  console.Print(fmt::format("{:<12} {}", "Parameters", count));
  for (std::uint64_t index = 0; index < count; ++index) {
    const ioParamInfo& param = info->params[index];
    console.Print(
        fmt::format("  {}: {} (kind {})", Shown(param.label), Shown(param.description), param.kind));
  }
  return Status::done;
}

Status RunRead(Session& session, Console& console, const std::vector<std::string>& items) {
  Status status = Status::done;
  for (const std::string& item : items) {
    if (const std::optional<Value> value = ReadOne(session, console, item)) {
      console.Print(
          fmt::format("{} = {} ({})", Printable(item), value->ForPeople(), KindName(value->Kind())));
    } else {
      console.Refuse(fmt::format("{} could not be read.", Printable(item)),
                     "The sensor does not know it or is not connected, or the log tells why.");
      status = Status::refused;
    }
  }
  return status;
}

Status RunWrite(Session& session, Console& console, const std::string& item, const Value& value) {
  const bool sent = session.Write(item, value);
  console.Absorb(session.Take());
  if (!sent) {
    console.Refuse(fmt::format("{} could not be written.", Printable(item)),
                   "The sensor does not know it or is not connected, or the log tells why.");
    return Status::refused;
  }
  console.Print(fmt::format("sent {} = {} ({})", Printable(item), value.ForPeople(), KindName(value.Kind())));
  return Status::done;
}

Status RunCall(Session& session, Console& console, const std::string& method, const std::string& arguments) {
  const bool answered = session.Call(method, arguments);
  const Delivery delivery = session.Take();
  console.Absorb(delivery);
  if (!answered || delivery.responses.empty()) {
    console.Refuse(fmt::format("{} could not be called.", Printable(method)),
                   "The method is unknown, its argument is no JSON object, or the sensor is not connected.");
    return Status::refused;
  }
  const std::string& response = delivery.responses.back();
  console.Print(console.Out().IsTerminal() ? Printable(response) : response);
  return Status::done;
}

}  // namespace zohost
