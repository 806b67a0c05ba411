// The members of the wire's messages, as ready pointers.
//
// Threads: any; constants. Made when the library is loaded, not at first use: statics go in the reverse order of their
// making, and the link's thread may still read a message while the instances of a process that ends are destroyed.
#pragma once

#include "zovyrnsdk/json/zojsonpointer.h"

namespace ZoSdk {

inline const ZoJsonPointer idMember = ZoJsonPointer::Member("id");
inline const ZoJsonPointer uriMember = ZoJsonPointer::Member("uri");
inline const ZoJsonPointer eventMember = ZoJsonPointer::Member("event");
inline const ZoJsonPointer statusMember = ZoJsonPointer::Member("status");
inline const ZoJsonPointer payloadMember = ZoJsonPointer::Member("payload");

}  // namespace ZoSdk
