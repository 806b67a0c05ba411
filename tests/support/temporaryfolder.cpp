#include "tests/support/temporaryfolder.h"

#include <stdlib.h>

#include <cerrno>
#include <system_error>

namespace ZoTest {

TemporaryFolder::TemporaryFolder() {
  std::string name = std::filesystem::temp_directory_path() / "zoio-XXXXXX";
  if (::mkdtemp(name.data()) == nullptr) {
    throw std::system_error(errno, std::generic_category(), "mkdtemp");
  }
  path = name;
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code ignored;  // a leftover in the system's temporary folder is no reason to fail a test
  std::filesystem::remove_all(path, ignored);
}

}  // namespace ZoTest
