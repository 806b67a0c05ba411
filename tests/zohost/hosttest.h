// What the tests of the whole program share: where it is, and what the fake plug-in noted.
#pragma once

#include <stdlib.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "tests/zohost/program.h"

// A file of this test alone, removed at its end.
class TraceFile {
 public:
  TraceFile() {
    char name[] = "/tmp/zohost-trace-XXXXXX";
    const int file = mkstemp(name);
    if (file >= 0) {
      close(file);
    }
    name_ = name;
  }
  TraceFile(const TraceFile&) = delete;
  TraceFile& operator=(const TraceFile&) = delete;
  ~TraceFile() { unlink(name_.c_str()); }

  const std::string& Name() const { return name_; }
  std::string Text() const {
    std::stringstream text;
    text << std::ifstream(name_).rdbuf();
    return text.str();
  }

 private:
  std::string name_;
};

inline std::vector<std::string> Zohost(std::vector<std::string> arguments, const std::string& plugin) {
  arguments.insert(arguments.begin(), ZOHOST_PROGRAM);
  if (!plugin.empty()) {
    arguments.insert(arguments.begin() + 1, {"--plugin", plugin});
  }
  return arguments;
}

inline std::vector<std::string> SplitLines(const std::string& text) {
  std::vector<std::string> lines;
  std::stringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line);
  }
  return lines;
}

inline std::size_t CountLines(const std::string& text) {
  return SplitLines(text).size();
}
