#include "tests/docs/markdown.h"

#include <algorithm>
#include <fstream>
#include <regex>
#include <sstream>
#include <stdexcept>

namespace ZoTest {

namespace {

std::string Trim(const std::string& text) {
  const std::size_t first = text.find_first_not_of(' ');
  return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(' ') - first + 1);
}

bool IsFence(const std::string& line) {
  return line.starts_with("```");
}

bool IsHeading(const std::string& line) {
  return std::regex_match(line, std::regex("#+ .*"));
}

std::vector<std::string> Cells(const std::string& row) {
  std::vector<std::string> cells;
  std::istringstream stream(row.substr(1));
  for (std::string cell; std::getline(stream, cell, '|');) {
    cells.push_back(Trim(cell));
  }
  return cells;
}

}  // namespace

std::string ReadFile(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  if (!stream) {
    throw std::runtime_error("cannot read " + file.string());
  }
  std::ostringstream text;
  text << stream.rdbuf();
  return text.str();
}

std::vector<std::string> SplitLines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line);
  }
  return lines;
}

std::vector<std::filesystem::path> Documents() {
  const std::filesystem::path root = ZOIO_ROOT;
  std::vector<std::filesystem::path> documents;
  for (const auto& folder : {root, root / "docs"}) {
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
      if (entry.path().extension() == ".md") {
        documents.push_back(entry.path());
      }
    }
  }
  std::sort(documents.begin(), documents.end());
  return documents;
}

std::vector<ConsoleCommand> ConsoleCommands(const std::filesystem::path& document) {
  std::vector<ConsoleCommand> commands;
  bool inConsole = false;
  bool inOther = false;
  int number = 0;
  for (const std::string& line : SplitLines(ReadFile(document))) {
    ++number;
    if (IsFence(line)) {
      const bool ends = inConsole || inOther;
      inConsole = !ends && line == "```console";
      inOther = !ends && !inConsole;
    } else if (inConsole && line.starts_with("$ ")) {
      commands.push_back({document.filename().string() + ":" + std::to_string(number), line.substr(2), {}});
    } else if (inConsole) {
      if (commands.empty()) {
        throw std::runtime_error("output without a command in " + document.string());
      }
      commands.back().output.push_back(line);
    }
  }
  return commands;
}

std::vector<std::string> LinkTargets(const std::filesystem::path& document) {
  static const std::regex link(R"(\]\(([^)#\s]+)[^)]*\))");
  static const std::regex codeSpan("`[^`]*`");
  std::vector<std::string> targets;
  bool inCode = false;
  for (const std::string& line : SplitLines(ReadFile(document))) {
    if (IsFence(line)) {
      inCode = !inCode;
    } else if (!inCode) {
      const std::string text = std::regex_replace(line, codeSpan, "");
      for (std::sregex_iterator found(text.begin(), text.end(), link), end; found != end; ++found) {
        targets.push_back((*found)[1]);
      }
    }
  }
  return targets;
}

std::vector<std::vector<std::string>> TableRows(const std::filesystem::path& document,
                                                const std::string& heading) {
  const std::vector<std::string> lines = SplitLines(ReadFile(document));
  auto line = std::find_if(lines.begin(), lines.end(), [&](const std::string& each) {
    return IsHeading(each) && each.ends_with("# " + heading);
  });
  if (line == lines.end()) {
    throw std::runtime_error("no heading \"" + heading + "\" in " + document.string());
  }
  std::vector<std::vector<std::string>> rows;
  bool inTable = false;
  for (++line; line != lines.end() && !IsHeading(*line); ++line) {
    if (line->starts_with("|---")) {
      inTable = true;
    } else if (!line->starts_with("|")) {
      inTable = false;
    } else if (inTable) {
      rows.push_back(Cells(*line));
    }
  }
  return rows;
}

std::string WithoutBackticks(const std::string& cell) {
  std::string text = cell;
  while (text.size() > 1 && text.front() == '`' && text.back() == '`') {
    text = text.substr(1, text.size() - 2);
  }
  return text;
}

}  // namespace ZoTest
