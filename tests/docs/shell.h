// Runs a command line as a user would type it in the root of the project, with the programs of this build in
// PATH.
#pragma once

#include <string>

#include "tests/support/childprocess.h"

namespace ZoTest {

// Standard error goes to the same place as standard output; there is no input. Fork while the process has one
// thread.
ChildResult RunInShell(const std::string& command);

}  // namespace ZoTest
