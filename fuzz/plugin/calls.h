// A host's calls in any order, over a sensor that answers anything. For fuzzers, and for replaying what they found.
#pragma once

#include <string_view>

namespace ZoFuzz {

// A line is one step: what it does, one of the two seats (0 or 1), a blank, and fields divided by "|". A field of "?"
// stands for a null pointer.
//   c0 [s][v][m]      create: on the simulator, without the callback of values, of methods
//   d0                destroy
//   x0 a|p|h          create with a null address, record or place for the handle
//   r0 NAME           read
//   w0 TYPE|NAME|VALUE    write; without a type, a null pointer
//   s0 INTERVAL[n|r|-]|NAME|NAME...   subscribe; with null names, null results, a negative count
//   u0 [n|-]|NAME|NAME...             unsubscribe
//   m0 METHOD|ARGUMENTS   call
//   p0, i0, t0, v0    a pass of the monitor, of the registry, of the cache, of the simulator
//   n0 0|1            the sensor goes and comes back
//   =0 URI|JSON       what a read of the resource finds
//   a0 VERB|JSON      what the sensor answers to this verb from now on; an empty document where it is no JSON
//   k0 URI|JSON       a push of the sensor
// Other lines do nothing. Aborts when a promise is broken.
void PlayCalls(std::string_view script);

}  // namespace ZoFuzz
