// The result of every base-library operation.
#pragma once

#include <cstdint>

// A status: qStatus_Success or one of the failures below. Any other value is a failure too.
using qStatus = std::int32_t;

inline constexpr qStatus qStatus_Success = 1;
inline constexpr qStatus qStatus_Failure = 0;
inline constexpr qStatus qStatus_TimeOut = -1;  // the time was up before the operation could succeed
inline constexpr qStatus qStatus_InvalidArgument =
    -2;  // a null handle, a null result pointer, a malformed text
inline constexpr qStatus qStatus_OutOfMemory = -3;
inline constexpr qStatus qStatus_System = -4;      // the operating system refused
inline constexpr qStatus qStatus_Deadlock = -5;    // a thread joins itself, or enters a lock that it holds
inline constexpr qStatus qStatus_WrongState = -6;  // a thread started twice, a lock left that is not held

// A short name of a status ("time-out"), for messages; never null. Any thread.
const char* qStatus_Text(qStatus status);
