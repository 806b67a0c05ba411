// Reads the parts of our documents that tests look at. Plain functions over text; any thread.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace ZoTest {

// One command of a ```console block ("$ command") with the output lines below it.
struct ConsoleCommand {
  std::string place;  // "README.md:17"
  std::string command;
  std::vector<std::string> output;
};

std::string ReadFile(const std::filesystem::path& file);
std::vector<std::string> SplitLines(const std::string& text);

// README.md and its like, and everything in docs/.
std::vector<std::filesystem::path> Documents();

std::vector<ConsoleCommand> ConsoleCommands(const std::filesystem::path& document);

// The targets of [text](target) outside of code blocks, without their "#part".
std::vector<std::string> LinkTargets(const std::filesystem::path& document);

// The rows of all tables under the heading (until the next heading), each a list of trimmed cells; without
// header and separator rows. Raises when there is no such heading.
std::vector<std::vector<std::string>> TableRows(const std::filesystem::path& document,
                                                const std::string& heading);

// "`x`" and "``x``" give "x"; anything else stays.
std::string WithoutBackticks(const std::string& cell);

}  // namespace ZoTest
