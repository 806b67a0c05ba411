// The documents that are measured, and the check before each measurement.
#pragma once

#include <benchmark/benchmark.h>

#include <cstddef>
#include <string>

#include "bench/json/payload.h"

// Ends the case with an error when what is to be timed does not do what it should.
inline bool Checked(benchmark::State& state, bool right) {
  if (!right) {
    state.SkipWithError("wrong result");
  }
  return right;
}

// Thirty-two channels in four groups, each with a value and a unit.
std::string NestedText();

// One object of so many members.
std::string WideText(std::size_t members);
