// How deep a JSON text nests, found without parsing it.
#pragma once

#include <cstddef>
#include <string_view>

// The deepest nesting of arrays and objects, counted on brackets outside strings: exact for valid JSON. In
// other texts a bracket that closes nothing does not count.
std::size_t JsonNesting(std::string_view text) noexcept;
