#include "qapi/socket.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <cerrno>

namespace {

TEST(Socket, IsOfItsFamilyAndNotInherited) {
  int descriptor = -1;
  ASSERT_EQ(qSocket_OpenTcp(qIpFamily::V4, &descriptor), qStatus_Success);
  int domain = 0;
  int type = 0;
  socklen_t size = sizeof(int);
  EXPECT_EQ(getsockopt(descriptor, SOL_SOCKET, SO_DOMAIN, &domain, &size), 0);
  EXPECT_EQ(getsockopt(descriptor, SOL_SOCKET, SO_TYPE, &type, &size), 0);
  EXPECT_EQ(domain, AF_INET);
  EXPECT_EQ(type, SOCK_STREAM);
  EXPECT_EQ(fcntl(descriptor, F_GETFD), FD_CLOEXEC);
  qSocket_Close(descriptor);
  EXPECT_EQ(fcntl(descriptor, F_GETFD), -1);
}

TEST(Socket, OfNoFamilyIsRefused) {
  int descriptor = 7;
  errno = 0;
  EXPECT_EQ(qSocket_OpenTcp(qIpFamily::None, &descriptor), qStatus_InvalidArgument);
  EXPECT_EQ(descriptor, -1);
  EXPECT_EQ(errno, EINVAL);
}

TEST(Socket, NullPointerIsRefused) {
  errno = 0;
  EXPECT_EQ(qSocket_OpenTcp(qIpFamily::V4, nullptr), qStatus_InvalidArgument);
  EXPECT_EQ(errno, EINVAL);
}

}  // namespace
