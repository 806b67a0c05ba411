// A host whose callbacks need no memory: they count and keep nothing.
//
// Threads: the callbacks may come from any number of threads at once. It must outlive every callback that was
// made with its Param().
#pragma once

#include <atomic>
#include <cstdint>

#include "xhmi/iohandler.h"

namespace ZoTest {

struct CountingHost {
  std::atomic<int> values = 0;
  std::atomic<int> results = 0;
  std::atomic<int> lines = 0;

  ioHandlerParam Param() {
    ioHandlerParam param{};
    param.context = this;
    param.itemValue = [](const char*, const ioDataValue*, void* context) { ++Of(context).values; };
    param.methodResult = [](const void*, const char*, void* context) { ++Of(context).results; };
    param.log = [](void* context, std::int32_t, const char*) { ++Of(context).lines; };
    return param;
  }

 private:
  static CountingHost& Of(void* context) { return *static_cast<CountingHost*>(context); }
};

}  // namespace ZoTest
