#include "qapi/socket.h"

#include <cerrno>

#include "qapi/faultswitch.h"
#include "qapi/platform.h"

qStatus qSocket_OpenTcp(qIpFamily family, int* out) {
  if (out == nullptr) {
    errno = EINVAL;
    return qStatus_InvalidArgument;
  }
  *out = -1;
  if (family == qIpFamily::None) {
    errno = EINVAL;
    return qStatus_InvalidArgument;
  }
  if (qStatus status; qApi::Fails(qOperation::SocketOpen, status)) {
    errno = EMFILE;
    return status;
  }
  *out = qApi::Platform::OpenTcpSocket(family == qIpFamily::V6);
  return *out == -1 ? qStatus_System : qStatus_Success;
}

void qSocket_Close(int descriptor) noexcept {
  qApi::Platform::CloseSocket(descriptor);
}
