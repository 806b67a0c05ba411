// What a terminal shows after some output: as much of a terminal as the table needs.
//
// Understands text (with wide characters), line ends, cursor up, erasing, wrapping on and off, the cursor
// shown and hidden; colours are ignored. Anything else is counted as unknown.
#pragma once

#include <string>
#include <string_view>
#include <vector>

class Screen {
 public:
  Screen(int columns, int rows) : columns_(columns), rows_(rows), lines_(1) {}

  void Feed(std::string_view output);
  // The visible lines, without spaces at their ends.
  std::vector<std::string> Lines() const;
  std::string Text() const;
  bool cursorShown = true;
  bool wraps = true;
  int unknown = 0;

 private:
  void Control(std::string_view sequence);
  void Put(const std::string& character, int width);

  int columns_;
  int rows_;
  int row_ = 0;  // into lines_, scrolled ones included
  int column_ = 0;
  std::vector<std::vector<std::string>> lines_;  // cells; the second half of a wide character is empty
};
