// zohost: shows, writes and records any tag of a sensor, without an HMI. See commandline.h for what it is
// told, plugin.h and session.h for how a host deals with the plug-in.
#include <fmt/format.h>
#include <unistd.h>

#include <csignal>
#include <optional>

#include "tools/zohost/browse.h"
#include "tools/zohost/commandline.h"
#include "tools/zohost/commands.h"
#include "tools/zohost/console.h"
#include "tools/zohost/plugin.h"
#include "tools/zohost/session.h"
#include "tools/zohost/signals.h"
#include "tools/zohost/usageerror.h"
#include "tools/zohost/watch.h"

namespace zohost {
namespace {

template <class... Ts>
struct Overloaded : Ts... {
  using Ts::operator()...;
};
template <class... Ts>
Overloaded(Ts...) -> Overloaded<Ts...>;

// Runs a command on an instance of its own, and shows what the instance logs while it ends.
template <typename Command>
Status WithSession(const Plugin& plugin, const CommandLine& line, Console& console, Command command) {
  try {
    Session session(plugin, line.address, line.port);
    console.Absorb(session.Take());
    const Status status = command(session);
    session.Close();
    console.Absorb(session.Take());
    return status;
  } catch (const InstanceRefused& refused) {
    Delivery last;
    last.log = refused.log;
    console.Absorb(last);
    console.Refuse(refused.what(), "");
    return Status::refused;
  }
}

Status Run(const CommandLine& line) {
  const auto* watch = std::get_if<WatchCommand>(&line.command);
  // Before the plug-in starts its threads, so that none of them is bothered by signals. The short commands
  // are simply ended by them.
  std::optional<Signals> signals;
  if (watch != nullptr) {
    signals.emplace();
  }
  Console console(Output(STDOUT_FILENO, signals ? signals->EndingNumber() : -1), LogReport(line.log));
  const Plugin plugin(line.plugin);
  if (std::holds_alternative<InfoCommand>(line.command)) {
    return RunInfo(plugin, console);
  }
  return WithSession(plugin, line, console, [&](Session& session) {
    return std::visit(
        Overloaded{
            [&](const InfoCommand&) { return Status::done; },
            [&](const ReadCommand& read) { return RunRead(session, console, read.items); },
            [&](const WriteCommand& write) { return RunWrite(session, console, write.item, write.value); },
            [&](const WatchCommand& command) {
              return Watch(session, console, *signals, command.options).Run();
            },
            [&](const BrowseCommand& browse) { return RunBrowse(session, console, browse.uri); },
            [&](const CallCommand& call) { return RunCall(session, console, call.method, call.arguments); }},
        line.command);
  });
}

Status Main(int argc, char** argv) {
  try {
    const auto parsed = ParseCommandLine(argc, argv);
    if (const auto* help = std::get_if<HelpText>(&parsed)) {
      Output(STDOUT_FILENO).Write(help->text);
      return Status::done;
    }
    return Run(std::get<CommandLine>(parsed));
  } catch (const UsageError& error) {
    Console::Tell(fmt::format("zohost: {}\nTry zohost --help, or zohost COMMAND --help.\n", error.what()));
    return Status::usage;
  } catch (const OutputError& error) {
    if (error.closed) {
      return Status::done;  // the reader has seen enough
    }
    Console::Tell(fmt::format("zohost: standard output takes no more: {}.\n", error.what()));
  } catch (const std::exception& error) {
    Console::Tell(fmt::format("zohost: {}\n", error.what()));
  }
  return Status::refused;
}

}  // namespace
}  // namespace zohost

int main(int argc, char** argv) {
  std::signal(SIGPIPE, SIG_IGN);  // a write then says so instead
  return static_cast<int>(zohost::Main(argc, argv));
}
