#include "tests/model/draws.h"

#include <cstdlib>

namespace ZoModel {

int Draws::Next() {
  state = state * 1'103'515'245u + 12'345u;
  return static_cast<int>(state >> 16 & 0x7fff);
}

Draws& LibraryDraws() {
  static Draws draws;
  return draws;
}

}  // namespace ZoModel

extern "C" int rand() noexcept {
  return ZoModel::LibraryDraws().Next();
}
extern "C" void srand(unsigned /*seed*/) noexcept {}
