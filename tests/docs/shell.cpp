#include "tests/docs/shell.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>

namespace ZoTest {

ChildResult RunInShell(const std::string& command) {
  return RunInChild([&command] {
    const char* const old = std::getenv("PATH");
    const std::string path = std::string(ZOIO_PROGRAMS ":") + (old != nullptr ? old : "/usr/bin:/bin");
    const int nothing = open("/dev/null", O_RDONLY);
    if (setenv("PATH", path.c_str(), 1) != 0 || chdir(ZOIO_ROOT) != 0 || dup2(nothing, STDIN_FILENO) < 0 ||
        dup2(STDOUT_FILENO, STDERR_FILENO) < 0) {
      return;  // the missing output tells
    }
    execl("/bin/bash", "bash", "-c", command.c_str(), nullptr);
  });
}

}  // namespace ZoTest
