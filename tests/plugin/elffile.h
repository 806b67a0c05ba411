// What the dynamic loader sees of a 64-bit ELF library: its dynamic symbols and the libraries that it needs.
//
// A plain value, read once. Raises std::runtime_error for a file that is no such library.
#pragma once

#include <string>
#include <vector>

namespace ZoTest {

struct DynamicSymbol {
  std::string name;
  bool defined = false;
  bool unique = false;  // bound so that the loader never unloads its library
};

struct ElfFile {
  explicit ElfFile(const std::string& path);

  std::vector<DynamicSymbol> symbols;
  std::vector<std::string> needed;
};

}  // namespace ZoTest
