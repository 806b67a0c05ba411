#include "tools/zohost/console.h"

#include <fmt/format.h>
#include <unistd.h>

namespace zohost {

void Console::Print(std::string_view line) {
  out_.Write(std::string(line) + "\n");
}

void Console::Tell(std::string_view lines) {
  try {
    Output(STDERR_FILENO).Write(lines);
  } catch (const OutputError&) {
    // Standard error is gone as well; the exit status still tells.
  }
}

void Console::Refuse(const std::string& text, const std::string& hint) {
  Tell(RefusalText(text, log_.TakeReasons(), hint));
}

std::string Console::RefusalText(const std::string& text, const std::vector<std::string>& reasons,
                                 const std::string& hint) {
  std::string lines = fmt::format("zohost: {}\n", text);
  for (const std::string& reason : reasons) {
    lines += fmt::format("  plug-in: {}\n", reason);
  }
  if (reasons.empty() && !hint.empty()) {
    lines += fmt::format("  {}\n", hint);
  }
  return lines;
}

void Console::Absorb(const Delivery& delivery) {
  Tell(log_.Add(delivery.log));
  if (delivery.lostLogLines > 0) {
    Tell(LostLogLinesText(delivery.lostLogLines));
  }
}

std::string Console::LostLogLinesText(std::uint64_t count) {
  return fmt::format("zohost: {} log lines were lost, because they came quicker than they could be shown.\n",
                     count);
}

}  // namespace zohost
