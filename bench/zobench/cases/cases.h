// The cases, and what they share.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "bench/zobench/commandline.h"
#include "bench/zobench/host.h"
#include "bench/zobench/report.h"

namespace ZoBench {

// One run: what is asked for, what is measured, and where the figures go.
struct Bench {
  const Options& options;
  const std::vector<Subject>& subjects;  // one, or two with --against
  Report& report;

  const Plugin& First() const { return *subjects.front().plugin; }
};

struct Case {
  const char* name;
  const char* about;
  void (*run)(Bench& bench);
};

const std::vector<Case>& Cases();

// Adds the row with the reason when a check in the measurement fails.
void Guard(Bench& bench, const Row& row, const std::function<void()>& measurement);

// How one subject's cost compares with the other's, in words.
std::string Comparison(const Summary& cost, const Summary& other);

// Adds a row for each subject from the costs of an interleaved run: the subjects', then the reference's. With two
// subjects the first one's row says how it compares with the other.
void AddCompared(Bench& bench, const Row& row, const std::vector<std::vector<double>>& costs);

// The items of a script: each resource has n and the members v00000 and so on, whose values ScriptedValue tells.
std::string ItemName(int resource, int member);
double ScriptedValue(int member);
// The members of a resource, without n.
std::string ScriptedMembers(int members);

void RunRead(Bench& bench);
void RunWrite(Bench& bench);
void RunTick(Bench& bench);
void RunIngest(Bench& bench);
void RunSubscribe(Bench& bench);
void RunUnsubscribe(Bench& bench);
void RunLog(Bench& bench);
void RunDestroy(Bench& bench);
void RunMemory(Bench& bench);
void RunIdle(Bench& bench);
void RunInstances(Bench& bench);
void RunWait(Bench& bench);

}  // namespace ZoBench
