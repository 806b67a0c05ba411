// Values of a host: making them, and telling recorded ones in a word.
//
// Functions without state.
#pragma once

#include <cstdint>
#include <string>

#include "tests/support/recorder.h"
#include "xhmi/iohandler.h"

namespace ZoTest {

// The text is borrowed.
ioDataValue TextValue(const char* text);
// A boolean by its whole field: a host may leave anything in the bytes behind the first.
ioDataValue BooleanValue(std::uint64_t wholeField);
ioDataValue IntegerValue(std::int64_t number);
ioDataValue FloatValue(double number);
ioDataValue UnsignedValue(std::uint64_t number);

// A value as text, for comparisons that print well: "2:5", "0:text", "1:1", "3:0.5", "4:7", "5:INVALID".
// Doubles with all their digits.
std::string Describe(const Entry& entry);

}  // namespace ZoTest
