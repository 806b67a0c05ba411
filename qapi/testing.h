// The test switch of the base library: makes chosen operations fail. Never used outside tests; costs one
// relaxed load per operation while it is off.
#pragma once

#include <cstdint>

#include "qapi/status.h"

enum class qOperation : std::uint8_t {
  LibraryConstruct,
  LockConstruct,
  LockEnter,
  LockEnterEx,
  LockExit,  // the lock is left all the same, only the status is the failure
  ThreadConstruct,
  ThreadSetName,
  ThreadStart,  // the thread does not start
  ThreadSleep,  // returns at once
  ThreadJoin,   // returns at once, without waiting and without waking the thread
  AddressParse,
  SocketOpen,
  Any  // counts operations of every kind
};

// From now on, the nth call (1 is the next) of operation fails with status, in any thread; times is how many
// calls in a row fail from there on (0: all of them). With nth 0 none fails, they are only counted. Replaces
// an earlier setting.
void qTest_FailOperation(qOperation operation, std::uint64_t nth, qStatus status, std::uint64_t times = 1);

// Like the above for the calls of one thread only: the thread whose name (as given to qThread_SetName or
// qThread_NameCurrent) is threadName, uncut.
void qTest_FailOperationIn(const char* threadName, qOperation operation, std::uint64_t nth, qStatus status,
                           std::uint64_t times = 1);

// Switches failures off and starts counting at 0.
void qTest_Reset();

// Calls counted since the last setting or reset, of the operation that is (or was last) set; and how many
// failed.
std::uint64_t qTest_CallCount();
std::uint64_t qTest_FailureCount();

// The number of library objects alive (handles, and threads that were started or adopted and not joined yet),
// to show that nothing leaks.
std::uint64_t qTest_LiveObjects();
