// The document that most cases parse.
#pragma once

#include <string>

// A payload as sensors send them: about 2 KB and 60 leaves in six groups, half of them numbers.
std::string PayloadText();
