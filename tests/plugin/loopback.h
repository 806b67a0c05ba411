// Ports of this machine's loopback address at which no sensor answers.
#pragma once

namespace ZoTest {

// A port that was free a moment ago: a connection to it is refused.
unsigned short ClosedPort();

// A peer that lets the system accept connections for it and never says a word. Owned by the test; one thread.
class MutePeer {
 public:
  MutePeer();
  ~MutePeer();
  MutePeer(const MutePeer&) = delete;
  MutePeer& operator=(const MutePeer&) = delete;

  unsigned short Port() const { return port; }

 private:
  int socket = -1;
  unsigned short port = 0;
};

}  // namespace ZoTest
