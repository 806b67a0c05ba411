// A folder that exists as long as this object. A plain owner; one thread.
#pragma once

#include <filesystem>
#include <string>

namespace ZoTest {

class TemporaryFolder {
 public:
  TemporaryFolder();
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  const std::filesystem::path& Path() const { return path; }
  std::filesystem::path operator/(const std::string& name) const { return path / name; }

 private:
  std::filesystem::path path;
};

}  // namespace ZoTest
