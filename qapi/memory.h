// The process's memory.
#pragma once

#include <cstddef>

// Gives memory that was freed, but kept for later, back to the operating system, as far as that can be done. Takes
// milliseconds where there is much of it: for the rare moment after something huge. Any thread.
void qMemory_GiveBack() noexcept;

// Gives what a block holds back to the operating system, though not the block, which may be freed then but no longer be
// read: an allocator keeps the last of its blocks in case they are wanted again, of huge ones tens of megabytes for each
// thread. For blocks of a megabyte and more. Any thread.
void qMemory_Discard(void* block, std::size_t size) noexcept;
