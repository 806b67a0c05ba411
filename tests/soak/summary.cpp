#include "tests/soak/summary.h"

#include <fmt/format.h>
#include <fmt/ostream.h>

namespace ZoSoak {
namespace {

double Milliseconds(std::chrono::nanoseconds value) {
  return std::chrono::duration<double, std::milli>(value).count();
}

std::string MiB(std::int64_t bytes) {
  return fmt::format("{:.1f} MiB", static_cast<double>(bytes) / (1 << 20));
}

void PrintCalls(std::ostream& out, const CallBoard& board) {
  fmt::print(out, "{:<20} {:>10} {:>11} {:>11} {:>11}\n", "call", "count", "p50 ms", "p99 ms", "max ms");
  for (std::size_t i = 0; i < kCallKinds; ++i) {
    const Histogram& times = board.Of(static_cast<CallKind>(i));
    fmt::print(out, "{:<20} {:>10} {:>11.3f} {:>11.3f} {:>11.3f}\n", Text(static_cast<CallKind>(i)),
               times.Count(), Milliseconds(times.Quantile(0.5)), Milliseconds(times.Quantile(0.99)),
               Milliseconds(times.Most()));
  }
  fmt::print(out, "{:<20} {:>10}\n\n", "alone, of these", board.AloneCount());
}

void PrintCounts(std::ostream& out, const Tallies& tallies) {
  const auto line = [&out](const char* name, std::uint64_t count) {
    fmt::print(out, "{:<44} {:>10}\n", name, count);
  };
  line("value callbacks", tallies.values);
  line("  of them INVALID", tallies.invalids);
  line("result callbacks", tallies.results);
  line("log lines", tallies.logLines[2] + tallies.logLines[3] + tallies.logLines[4] + tallies.logLines[5] +
                        tallies.logLines[6]);
  line("  of them errors and worse", tallies.logLines[5] + tallies.logLines[6]);
  line("slow callbacks of the host", tallies.slowCallbacks);
  line("callbacks of threads that were given up", tallies.stragglers);
  line("values out of order by the sensor's doing", tallies.excusedFalls);
  line("subscriptions that a faulty sensor refused", tallies.refusedSubscriptions);
  line("subscriptions that asked for nothing", tallies.skippedSubscriptions);
  line("writes read back from calm sensors", tallies.checkedWrites);
  line("reads that calm sensors had to answer", tallies.checkedReads);
  line("last changes that had to arrive", tallies.checkedChanges);
  fmt::print(out, "\n");
}

void PrintFaults(std::ostream& out, const Tallies& tallies, const std::deque<Keeper>& keepers) {
  fmt::print(out, "{:<44} {:>10}\n", "fault", "times");
  for (std::size_t i = 0; i < kFaults.size(); ++i) {
    std::uint64_t count = 0;
    for (const Keeper& keeper : keepers) {
      count += keeper.Done(i);
    }
    fmt::print(out, "{:<44} {:>10}\n", kFaults[i].name, count);
  }
  fmt::print(out, "{:<44} {:>10}\n\n", "sensors that came back", tallies.restarts.load());
}

void PrintFigures(std::ostream& out, const Watch& watch, const Ends& ends) {
  fmt::print(out, "{:<20} {:>12} {:>12} {:>12} {:>12}\n", "process", "start", "most", "end", "growth");
  const auto line = [&out](const char* name, std::int64_t start, const Series& series, std::int64_t end) {
    fmt::print(out, "{:<20} {:>12} {:>12} {:>12} {:>12}\n", name, MiB(start), MiB(series.Most()), MiB(end),
               MiB(series.Growth()));
  };
  line("memory", ends.start.memory, watch.Memory(), ends.end.memory);
  line("heap in use", ends.start.heap, watch.Heap(), ends.end.heap);
  fmt::print(out, "{:<20} {:>12} {:>12} {:>12} {:>12}\n", "threads", ends.start.threads,
             watch.Threads().Most(), ends.end.threads, watch.Threads().Growth());
  fmt::print(out, "{:<20} {:>12} {:>12} {:>12} {:>12}\n\n", "descriptors", ends.start.files,
             watch.Files().Most(), ends.end.files, watch.Files().Growth());
}

}  // namespace

void PrintSummary(std::ostream& out, const CallBoard& board, const Tallies& tallies,
                  const std::deque<Keeper>& keepers, const Watch& watch, const Ends& ends,
                  const Breaches& breaches) {
  fmt::print(out, "\n");
  PrintCalls(out, board);
  PrintCounts(out, tallies);
  PrintFaults(out, tallies, keepers);
  PrintFigures(out, watch, ends);
  fmt::print(out, "{:<44} {:>10}\n", "breaches", breaches.Count());
  for (const auto& [kind, count] : breaches.ByKind()) {
    fmt::print(out, "  {:<42} {:>10}\n", kind, count);
  }
  out.flush();
}

}  // namespace ZoSoak
