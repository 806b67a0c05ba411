// The process's memory.
#pragma once

// Gives memory that was freed, but kept for later, back to the operating system, as far as that can be done. Takes
// milliseconds where there is much of it: for the rare moment after something huge. Any thread.
void qMemory_GiveBack() noexcept;
