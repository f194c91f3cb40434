#include "tests/soak/HeapCount.h"

#include <winsock2.h>
#include <windows.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace
{
constexpr DWORD MOST_HEAPS = 64;

/// As the test system's label has it.
struct LABEL_RECORD
{
    std::uint64_t uFont; // a handle, which has 32 bits
    std::uint64_t uImage;
    std::uint64_t uTransparent;
};
static_assert(sizeof(LABEL_RECORD) == 24);

/// Of a character of a text that was broken into lines.
constexpr BYTE SOFT_BREAK = 1;
constexpr BYTE WHITE_SPACE = 2;
constexpr BYTE CHARACTER_STOP = 4;
constexpr BYTE WORD_STOP = 8;
constexpr BYTE CHARACTER_FLAGS = SOFT_BREAK | WHITE_SPACE | CHARACTER_STOP | WORD_STOP;
constexpr DWORD FEWEST_CHARACTERS = 8; // of less, nothing can be told

bool IsLabelRecord(const BYTE* pBlock, DWORD cbBlock)
{
    LABEL_RECORD record = {};
    if (cbBlock != sizeof(record))
    {
        return false;
    }
    std::memcpy(&record, pBlock, sizeof(record));
    return record.uFont != 0 && record.uFont <= UINT32_MAX && record.uImage == 0;
}

bool IsArrayOfCharacters(const BYTE* pBlock, DWORD cbBlock)
{
    return cbBlock >= FEWEST_CHARACTERS && std::all_of(pBlock, pBlock + cbBlock, [](BYTE bFlags) {
               return (bFlags & CHARACTER_STOP) != 0 && (bFlags & ~CHARACTER_FLAGS) == 0;
           });
}

void CountHeap(HANDLE hHeap, HEAP_COUNT& count)
{
    PROCESS_HEAP_ENTRY entry = {};
    HeapLock(hHeap);
    while (HeapWalk(hHeap, &entry))
    {
        if ((entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) == 0)
        {
            continue;
        }
        const BYTE* const pBlock = static_cast<const BYTE*>(entry.lpData);
        const bool bLeft = IsLabelRecord(pBlock, entry.cbData) || IsArrayOfCharacters(pBlock, entry.cbData);
        (bLeft ? count.nLeftovers : count.nBytes) += entry.cbData;
    }
    HeapUnlock(hHeap);
}
} // namespace

HEAP_COUNT CountHeaps()
{
    HANDLE ahHeaps[MOST_HEAPS] = {};
    const DWORD dwHeaps = std::min(GetProcessHeaps(MOST_HEAPS, ahHeaps), MOST_HEAPS);
    HEAP_COUNT count;
    for (DWORD dwHeap = 0; dwHeap < dwHeaps; ++dwHeap)
    {
        CountHeap(ahHeaps[dwHeap], count);
    }
    return count;
}
