// The rank check behind the locks, for guards over locks of other kinds (std::mutex) that take part in the
// order.
#pragma once

// Note that the calling thread is about to enter, or has left, a lock of this rank. Rank 0 is not checked. In
// builds with NDEBUG both do nothing. A rank that does not rise writes both names to stderr and aborts.
void qLockRank_Entering(const char* name, int rank);
void qLockRank_Left(const char* name, int rank);

// The number of ranked locks that the calling thread holds; 0 in builds with NDEBUG.
int qLockRank_Depth();
