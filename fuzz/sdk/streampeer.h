// The sensor's end of one connection, played from bytes, on the thread that drives the link.
//
// Nothing here waits: each Turn does what can be done at once. A listener on 127.0.0.1, at a port of the system's
// choosing, is made at the first use and serves all plays. Threads: one. Owner: the play.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace ZoFuzz {

// What an input is made of, from its front: a byte of switches, a byte with the number of piece sizes (its low three
// bits) and those sizes, and the bytes for the wire.
struct StreamInput {
  enum Switch : unsigned {
    OwnHandshake = 1,  // the bytes answer the upgrade, too; "$KEY" in them becomes what the link must see
    Together = 2,      // nothing waits for the session to open
    Pausing = 4,       // the link stops reading after each message, for a turn
    Strict = 8,        // the link ends the session at what is no JSON object
    Reset = 16         // the connection ends without a good-bye
  };

  explicit StreamInput(std::string_view input);
  bool Has(Switch bit) const { return (switches & bit) != 0; }

  unsigned switches = 0;
  std::vector<std::size_t> sizes;  // in turns; the last pieces come in one
  std::string_view bytes;
};

class StreamPeer {
 public:
  static std::uint16_t Port();

  explicit StreamPeer(const StreamInput& input) : input(input) {}
  StreamPeer(const StreamPeer&) = delete;
  StreamPeer& operator=(const StreamPeer&) = delete;
  ~StreamPeer();

  // opened: the link's session did.
  void Turn(bool opened);

  // All bytes are out, and the connection is ended from here.
  bool Done() const { return ended; }

  // What was sent behind the answer to the upgrade, and what came behind the upgrade.
  std::string_view SentFrames() const;
  std::string_view ReceivedFrames() const;
  // Whether the answer to the upgrade held the link's key.
  bool KeyShown() const;

 private:
  bool Accept();
  bool Receive();
  void Answer();
  bool SendPiece();
  void End();

  const StreamInput& input;
  int socket = -1;
  bool answered = false;
  bool ended = false;
  unsigned turnsWaited = 0;
  std::size_t pieces = 0;  // sent
  std::string acceptKey;
  std::string received;
  std::string toSend;
  std::size_t sent = 0;   // of toSend
  std::size_t whole = 0;  // of toSend: goes out in one piece
};

}  // namespace ZoFuzz
