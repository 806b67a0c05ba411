#include "qapi/status.h"

const char* qStatus_Text(qStatus status) {
  switch (status) {
    case qStatus_Success:
      return "success";
    case qStatus_Failure:
      return "failure";
    case qStatus_TimeOut:
      return "time-out";
    case qStatus_InvalidArgument:
      return "invalid argument";
    case qStatus_OutOfMemory:
      return "out of memory";
    case qStatus_System:
      return "system error";
    case qStatus_Deadlock:
      return "deadlock";
    case qStatus_WrongState:
      return "wrong state";
    default:
      return "unknown status";
  }
}
