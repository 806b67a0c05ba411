// What a command says: results on standard output, everything else on standard error.
//
// Threads: main thread only.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tools/zohost/logreport.h"
#include "tools/zohost/output.h"

namespace zohost {

class Session;

// Exit statuses of the program.
enum class Status : int { done = 0, refused = 1, usage = 2 };

class Console {
 public:
  Console(Output out, LogReport log) : out_(out), log_(std::move(log)) {}

  Output& Out() { return out_; }
  LogReport& Log() { return log_; }

  // A line of results. Raises OutputError.
  void Print(std::string_view line);
  // Whole lines for standard error, as they are. Never fails: there is no one left to tell.
  static void Tell(std::string_view lines);
  // "zohost: text", followed by the plug-in's reasons or, if it gave none, by the hint.
  void Refuse(const std::string& text, const std::string& hint);
  static std::string RefusalText(const std::string& text, const std::vector<std::string>& reasons,
                                 const std::string& hint);
  static std::string LostLogLinesText(std::uint64_t count);
  // Takes log lines in and shows those that the user asked for.
  void Absorb(const Delivery& delivery);

 private:
  Output out_;
  LogReport log_;
};

}  // namespace zohost
