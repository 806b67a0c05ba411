#include "qapi/lockrank.h"

#ifndef NDEBUG

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

struct HeldLock {
  const char* name;
  int rank;
};

constexpr int maxHeld = 32;

// Plain arrays: a thread-local object with a destructor would keep a plug-in that contains this file mapped
// after it was unloaded.
thread_local HeldLock held[maxHeld];
thread_local int depth = 0;

[[noreturn]] void Abort(const char* what, const char* name, int rank) {
  std::fprintf(stderr, "lock rank: %s \"%s\" (rank %d)", what, name, rank);
  for (int i = depth - 1; i >= 0; --i) {
    std::fprintf(stderr, "%s \"%s\" (rank %d)", i == depth - 1 ? " while holding" : ",", held[i].name,
                 held[i].rank);
  }
  std::fputs("\n", stderr);
  std::abort();
}

}  // namespace

void qLockRank_Entering(const char* name, int rank) {
  if (rank == 0) {
    return;
  }
  // Every lock held has passed this check, but they may be left in any order: the last one is the highest
  // always.
  if (depth > 0 && rank <= held[depth - 1].rank) {
    Abort("entering", name, rank);
  }
  if (depth == maxHeld) {
    Abort("too many locks at", name, rank);
  }
  held[depth++] = {name, rank};
}

void qLockRank_Left(const char* name, int rank) {
  if (rank == 0) {
    return;
  }
  for (int i = depth - 1; i >= 0; --i) {
    if (held[i].rank == rank && std::strcmp(held[i].name, name) == 0) {
      for (; i + 1 < depth; ++i) {
        held[i] = held[i + 1];
      }
      --depth;
      return;
    }
  }
  Abort("leaving what is not held:", name, rank);
}

int qLockRank_Depth() {
  return depth;
}

#else

void qLockRank_Entering(const char* /*name*/, int /*rank*/) {}
void qLockRank_Left(const char* /*name*/, int /*rank*/) {}
int qLockRank_Depth() {
  return 0;
}

#endif
