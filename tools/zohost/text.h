// Text on its way to a terminal or a file: UTF-8 repaired, control characters made visible, widths counted,
// JSON and CSV quoted. Item names and values come from afar and may hold anything.
//
// Threads: pure functions.
#pragma once

#include <string>
#include <string_view>

namespace zohost {

// The text with every byte that is not part of valid UTF-8 replaced by U+FFFD.
std::string ValidUtf8(std::string_view text);

// One line that cannot move the cursor, change colours or reverse the direction of its neighbours: control
// and formatting characters are written as \n, \t or \u001b.
std::string Printable(std::string_view text);

// Columns that a printable text takes on a terminal: 0 for combining marks, 2 for wide characters.
int DisplayWidth(std::string_view text);

// The text cut to at most this many columns, with the mark where something is missing: FitStart keeps the
// start (values), FitEnd keeps the end (item names differ in their last segments).
std::string FitStart(std::string_view text, int columns, std::string_view mark);
std::string FitEnd(std::string_view text, int columns, std::string_view mark);

// The text followed by spaces up to this many columns; a longer one is left as it is.
std::string Padded(std::string text, int columns);

// A JSON string literal with its quotes. The text is repaired first.
std::string JsonString(std::string_view text);

// A CSV field, quoted if it has to be. The text is repaired first.
std::string CsvField(std::string_view text);

}  // namespace zohost
