// Between unloadtest.cpp and the library that it loads and unloads.
#pragma once

#include <atomic>

// Lives in the program, so that it can be looked at when the library is gone.
struct UnloadReport {
  std::atomic<bool> unloading{false};
  std::atomic<int> threadsEnded{0};
};

// Uses every operation of the base library and leaves two threads behind: one that sleeps for an hour, and
// one that ends a while after report.unloading is set. Returns the first status that is no success, else
// success.
extern "C" int UnloadModule_Run(UnloadReport* report);
using UnloadModuleRun = int (*)(UnloadReport*);
