// The random numbers of the C library, replaced in the program that links this: the same ones come in every run.
//
// Plain values.
#pragma once

namespace ZoModel {

class Draws {
 public:
  int Next();

 private:
  unsigned state = 1;
};

// What rand gives. For one thread: a simulator draws in passes over texts, which a test makes itself.
Draws& LibraryDraws();

}  // namespace ZoModel
