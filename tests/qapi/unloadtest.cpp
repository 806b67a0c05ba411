// The base library inside a dynamic library that is unloaded.

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <thread>

#include "qapi/status.h"
#include "tests/qapi/unloadmodule.h"

namespace {

bool IsMapped(const std::string& path) {
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) {
    if (line.ends_with(path)) {
      return true;
    }
  }
  return false;
}

void LoadUseAndUnload() {
  UnloadReport report;
  void* const library = dlopen(ZOIO_UNLOAD_MODULE, RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(library, nullptr) << dlerror();
  ASSERT_TRUE(IsMapped(ZOIO_UNLOAD_MODULE));
  // dlsym hands out functions as data pointers.
  const auto run = reinterpret_cast<UnloadModuleRun>(dlsym(library, "UnloadModule_Run"));
  ASSERT_NE(run, nullptr) << dlerror();
  EXPECT_EQ(run(&report), qStatus_Success);
  report.unloading = true;
  EXPECT_EQ(dlclose(library), 0);
  EXPECT_EQ(report.threadsEnded, 2) << "a thread outlived the unload";
  EXPECT_FALSE(IsMapped(ZOIO_UNLOAD_MODULE));
}

TEST(Unload, JoinsAllThreadsAndLeavesNothingMapped) {
  LoadUseAndUnload();
}

TEST(Unload, WorksAgainAndAgain) {
  for (int round = 0; round < 5; ++round) {
    LoadUseAndUnload();
  }
}

// The thread-locals of a thread that used the library and lives on must not hold it.
TEST(Unload, IsNotHeldByAThreadThatUsedIt) {
  std::thread([] { LoadUseAndUnload(); }).join();
  LoadUseAndUnload();
}

}  // namespace
