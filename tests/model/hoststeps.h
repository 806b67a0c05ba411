// What a host does with an instance, and what there is to see of it, in the words of the model.
//
// Functions without state.
#pragma once

#include <exception>
#include <set>
#include <string>
#include <vector>

#include "tests/model/steps.h"
#include "tests/support/recorder.h"
#include "zoiohandler/vyrnclient/zovyrnclient.h"

namespace ZoModel {

// What a step raises is its result.
template <typename Work>
std::string Result(const Work& work) {
  try {
    return work();
  } catch (const std::exception& e) {
    return e.what();
  }
}

std::string Perform(ZoIO::ZoVyrnClient& client, const Subscribe& step);
std::string Perform(ZoIO::ZoVyrnClient& client, const Unsubscribe& step);
std::string Perform(ZoIO::ZoVyrnClient& client, const Read& step);
std::string Perform(ZoIO::ZoVyrnClient& client, const Write& step);
std::string Perform(ZoIO::ZoVyrnClient& client, const Call& step, const void* token);

// A callback. token: of the calls whose responses are expected.
std::string Told(const ZoTest::Entry& entry, const void* token);

// Items, registry and cache. pushed: resources that may be cached beside those of items.
std::vector<std::string> StateOf(ZoIO::ISensorManager& sensor, const std::set<std::string>& pushed);

}  // namespace ZoModel
