// What a fuzz target says when a promise is broken.
#pragma once

#include <cstdio>
#include <cstdlib>

inline void Require(bool kept, const char* promise) {
  if (!kept) {
    std::fprintf(stderr, "broken promise: %s\n", promise);
    std::abort();
  }
}
