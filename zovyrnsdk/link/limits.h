// Sizes and times of the link, in one place.
#pragma once

#include <chrono>
#include <cstddef>

namespace ZoSdk {

inline constexpr std::size_t messageLimit = std::size_t{64} << 20;    // bytes of one message, either way
inline constexpr std::size_t documentLimit = std::size_t{128} << 20;  // bytes that reading a message may cost
inline constexpr std::size_t depthLimit = 256;                        // nesting of one message, either way

inline constexpr std::chrono::milliseconds connectLimit{3000};     // Connect, and each attempt to restore
inline constexpr std::chrono::milliseconds pingInterval{1000};     // between two pings
inline constexpr std::chrono::milliseconds silenceLimit{3000};     // without a byte: the peer is dead
inline constexpr std::chrono::milliseconds hearingLimit{3000};     // for a pong, while other bytes come
inline constexpr std::chrono::milliseconds healthLimit{1000};      // for an answer of /system
inline constexpr std::chrono::milliseconds growLimit{30000};       // that it may wait behind large messages
inline constexpr std::chrono::milliseconds requestPatience{3000};  // for requests that nobody waits for
inline constexpr std::chrono::milliseconds refusedPause{3000};     // before a refused restore is tried again
inline constexpr std::chrono::milliseconds blamedPause{60000};     // the same, for what ended sessions
inline constexpr std::chrono::milliseconds probeInterval{5000};    // between two probes of a braked URI
inline constexpr std::chrono::milliseconds pushSpacing{2};         // between two values of one URI
inline constexpr std::chrono::milliseconds pushPatience{4};        // a push waits for a taker of an answer
inline constexpr std::chrono::milliseconds pushWaitLimit{50};  // in all, while pushes and answers alternate
inline constexpr std::chrono::milliseconds hurriedPause{500};  // between attempts that calls ask for
inline constexpr std::chrono::milliseconds healthySession{10000};  // after this the back-off starts over

inline constexpr std::size_t restoreWindow = 32;  // restore requests under way at once
inline constexpr std::size_t pushBytesLimit = std::size_t{32}
                                              << 20;             // of waiting pushes; then reading pauses
inline constexpr std::size_t pushCountLimit = 100000;            // likewise
inline constexpr std::size_t heardLimit = std::size_t{1} << 17;  // URIs remembered from pushes

}  // namespace ZoSdk
