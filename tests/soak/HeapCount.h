#pragma once

#include <cstddef>

/// The blocks on the heaps of this process, in bytes.
struct HEAP_COUNT
{
    size_t nBytes = 0; // without the leftovers
    /// What the test system's own controls leave when they are destroyed: a label of the common controls'
    /// sixth version its record, and a field of several lines an array with a byte for each character of a
    /// text that it has broken into lines.
    size_t nLeftovers = 0;
};

/// Any thread; the others should rest meanwhile.
HEAP_COUNT CountHeaps();
