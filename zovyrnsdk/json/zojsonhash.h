// The hash of member names: seeded, so that a peer who chooses the names of an object cannot make them
// collide.
//
// Threads: any. The value holds for one process only and must never be stored or sent.
#pragma once

#include <cstdint>
#include <string_view>

std::uint64_t ZoJsonHash(std::string_view name) noexcept;
