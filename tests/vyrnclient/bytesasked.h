// Replaces the global operator new by one that counts.
#pragma once

#include <cstddef>

namespace ZoTest {

// Bytes that all threads have asked for so far.
std::size_t BytesAsked();

}  // namespace ZoTest
