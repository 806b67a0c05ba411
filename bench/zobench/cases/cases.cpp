#include "bench/zobench/cases/cases.h"

#include <fmt/format.h>

#include <cmath>
#include <exception>

namespace ZoBench {

const std::vector<Case>& Cases() {
  static const std::vector<Case> cases{
      {"read", "ReadItem, beside a ping-pong of as many bytes", &RunRead},
      {"write", "WriteItem, beside a ping-pong of as many bytes", &RunWrite},
      {"tick", "CPU time of a pass for each subscribed item, beside a walk over a flat table", &RunTick},
      {"ingest", "pushed documents taken in, beside a reader of the frames alone", &RunIngest},
      {"subscribe", "SubscribeItems for each item, beside a hash table and a log call", &RunSubscribe},
      {"unsubscribe", "UnsubscribeItems for each item, beside a hash table", &RunUnsubscribe},
      {"log", "one log line, beside snprintf", &RunLog},
      {"destroy", "DestroyIoInstance: idle, streaming, link down, sensor silent", &RunDestroy},
      {"memory", "bytes of a registered and subscribed item", &RunMemory},
      {"idle", "CPU of 1000 items at 100 ms, and of an outage", &RunIdle},
      {"instances", "threads, memory, CPU and times of 1 to 1000 instances", &RunInstances},
      {"wait", "how long ReadItem waits while a pass walks 100000 items", &RunWait},
  };
  return cases;
}

void Guard(Bench& bench, const Row& row, const std::function<void()>& measurement) {
  try {
    measurement();
  } catch (const std::exception& error) {
    Row refused = row;
    refused.note = error.what();
    bench.report.Add(std::move(refused));
  }
}

std::string Comparison(const Summary& cost, const Summary& other) {
  const Verdict verdict = Compare(cost, other);
  return verdict == Verdict::NoDifference
             ? Text(verdict)
             : fmt::format("{} by {:.1f} %", Text(verdict), std::abs(cost.median / other.median - 1) * 100);
}

void AddCompared(Bench& bench, const Row& row, const std::vector<std::vector<double>>& costs) {
  for (std::size_t i = 0; i < bench.subjects.size(); ++i) {
    Row own = row;
    own.value = Summarize(costs[i]);
    own.reference = Summarize(costs.back());
    own.ratio = Summarize(Ratios(costs[i], costs.back()));
    if (bench.subjects.size() > 1) {
      own.variant += " (" + bench.subjects[i].label + ")";
      if (i == 0) {
        own.note = Comparison(own.value, Summarize(costs[1]));
      }
    }
    bench.report.Add(std::move(own));
  }
}

std::string ItemName(int resource, int member) {
  return member == 0 ? fmt::format("/r{:05}#/n", resource) : fmt::format("/r{:05}#/v{:06}", resource, member);
}

double ScriptedValue(int member) {
  return member % 1000 + 0.5;
}

std::string ScriptedMembers(int members) {
  std::string text;
  for (int member = 1; member <= members; ++member) {
    text += fmt::format("{}\"v{:06}\":{:.1f}", member == 1 ? "" : ",", member, ScriptedValue(member));
  }
  return text;
}

}  // namespace ZoBench
