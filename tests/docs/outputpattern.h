// Compares output with what a document shows. "…" within a line stands for any text of that line (also none),
// a line of "…" alone for any number of lines. Plain functions; any thread.
#pragma once

#include <string>
#include <vector>

namespace ZoTest {

bool LineMatches(const std::string& pattern, const std::string& line);
bool OutputMatches(const std::vector<std::string>& pattern, const std::vector<std::string>& lines);

}  // namespace ZoTest
