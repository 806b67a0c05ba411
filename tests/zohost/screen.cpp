#include "tests/zohost/screen.h"

#include <algorithm>
#include <cstdlib>

#include "tools/zohost/text.h"

void Screen::Feed(std::string_view output) {
  for (std::size_t at = 0; at < output.size();) {
    const char character = output[at];
    if (character == '\x1b' && at + 1 < output.size() && output[at + 1] == '[') {
      const std::size_t end = output.find_first_not_of("0123456789;?", at + 2);
      if (end == std::string_view::npos) {
        return;
      }
      Control(output.substr(at + 2, end - at - 1));
      at = end + 1;
    } else if (character == '\r') {
      column_ = 0;
      ++at;
    } else if (character == '\n') {
      ++row_;
      if (static_cast<std::size_t>(row_) >= lines_.size()) {
        lines_.emplace_back();
      }
      ++at;
    } else {
      std::size_t end = at + 1;
      while (end < output.size() && (static_cast<unsigned char>(output[end]) & 0xC0u) == 0x80u) {
        ++end;
      }
      const std::string whole(output.substr(at, end - at));
      unknown += static_cast<unsigned char>(character) < 0x20 ? 1 : 0;
      Put(whole, zohost::DisplayWidth(whole));
      at = end;
    }
  }
}

void Screen::Control(std::string_view sequence) {
  const int number = std::max(std::atoi(std::string(sequence).c_str()), 1);
  if (sequence == "?25h" || sequence == "?25l") {
    cursorShown = sequence == "?25h";
  } else if (sequence == "?7h" || sequence == "?7l") {
    wraps = sequence == "?7h";
  } else if (sequence.back() == 'A') {
    // Not above the top of the window: what has scrolled out cannot be reached.
    row_ = std::max({row_ - number, static_cast<int>(lines_.size()) - rows_, 0});
  } else if (sequence == "K" || sequence == "J") {
    auto& line = lines_[static_cast<std::size_t>(row_)];
    line.resize(std::min(line.size(), static_cast<std::size_t>(column_)));
    if (sequence == "J") {
      for (auto below = lines_.begin() + row_ + 1; below != lines_.end(); ++below) {
        below->clear();
      }
    }
  } else if (sequence.back() != 'm') {
    ++unknown;
  }
}

void Screen::Put(const std::string& character, int width) {
  if (column_ + width > columns_) {
    if (!wraps) {
      return;
    }
    Feed("\r\n");
  }
  auto& line = lines_[static_cast<std::size_t>(row_)];
  line.resize(std::max(line.size(), static_cast<std::size_t>(column_ + width)), " ");
  if (width == 0 && column_ > 0) {
    line[static_cast<std::size_t>(column_ - 1)] += character;
    return;
  }
  line[static_cast<std::size_t>(column_)] = character;
  if (width == 2) {
    line[static_cast<std::size_t>(column_ + 1)].clear();
  }
  column_ += width;
}

std::vector<std::string> Screen::Lines() const {
  std::vector<std::string> result;
  const std::size_t first =
      lines_.size() > static_cast<std::size_t>(rows_) ? lines_.size() - static_cast<std::size_t>(rows_) : 0;
  for (std::size_t row = first; row < lines_.size(); ++row) {
    std::string text;
    for (const std::string& cell : lines_[row]) {
      text += cell;
    }
    result.push_back(text.substr(0, text.find_last_not_of(' ') + 1));
  }
  return result;
}

std::string Screen::Text() const {
  std::string text;
  for (const std::string& line : Lines()) {
    text += line + "\n";
  }
  return text;
}
