// Puts some of the blocks of operator new at the end of pages of their own, and takes the pages away when the
// block is freed: what is read behind a block's end or after its life ends the program.

#include <winsock2.h>
#include <windows.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace
{
constexpr size_t PAGE = 4096;
constexpr size_t ALIGNMENT = 16;
constexpr size_t SLOT = 0x11000; // bytes: the largest block, and a page that is never there
constexpr size_t LARGEST_BLOCK = SLOT - PAGE;
constexpr size_t SLOTS = 4096; // a freed one is used again after all others
constexpr unsigned GUARDED_RATE = 16;
constexpr unsigned char SLACK = 0xFD;

std::atomic<unsigned char*> g_pSlots = nullptr;
std::atomic<unsigned> g_uBlocks = 0;
std::atomic<size_t> g_nNextSlot = 0;
std::atomic<size_t> g_acbSlots[SLOTS]; // of the block in it; 0: free

unsigned char* Slots()
{
    unsigned char* pSlots = g_pSlots;
    if (pSlots == nullptr)
    {
        void* const pNew = VirtualAlloc(nullptr, SLOTS * SLOT, MEM_RESERVE, PAGE_NOACCESS);
        pSlots = static_cast<unsigned char*>(pNew);
        unsigned char* pOther = nullptr;
        if (!g_pSlots.compare_exchange_strong(pOther, pSlots))
        {
            VirtualFree(pNew, 0, MEM_RELEASE);
            pSlots = pOther;
        }
    }
    return pSlots;
}

size_t PagesOf(size_t cb)
{
    return (cb + PAGE - 1) / PAGE * PAGE;
}

void* AllocateGuarded(size_t cb)
{
    const size_t nSlot = g_nNextSlot++ % SLOTS;
    size_t cbFree = 0;
    unsigned char* const pSlots = Slots();
    if (pSlots == nullptr || !g_acbSlots[nSlot].compare_exchange_strong(cbFree, cb))
    {
        return nullptr;
    }
    unsigned char* const pSlot = pSlots + nSlot * SLOT;
    const void* const pCommitted = VirtualAlloc(pSlot, PagesOf(cb), MEM_COMMIT, PAGE_READWRITE);
    if (pCommitted == nullptr)
    {
        g_acbSlots[nSlot] = 0;
        return nullptr;
    }
    const size_t cbAligned = (cb + ALIGNMENT - 1) / ALIGNMENT * ALIGNMENT;
    unsigned char* const pBlock = pSlot + PagesOf(cb) - cbAligned;
    for (size_t n = cb; n < cbAligned; ++n)
    {
        pBlock[n] = SLACK;
    }
    return pBlock;
}

bool FreeGuarded(void* p)
{
    unsigned char* const pSlots = g_pSlots;
    auto* const pBlock = static_cast<unsigned char*>(p);
    if (pSlots == nullptr || pBlock < pSlots || pBlock >= pSlots + SLOTS * SLOT)
    {
        return false;
    }
    const size_t nSlot = static_cast<size_t>(pBlock - pSlots) / SLOT;
    const size_t cb = g_acbSlots[nSlot];
    unsigned char* const pSlot = pSlots + nSlot * SLOT;
    for (const unsigned char* pSlack = pBlock + cb; pSlack < pSlot + PagesOf(cb); ++pSlack)
    {
        if (*pSlack != SLACK)
        {
            std::abort();
        }
    }
    VirtualFree(pSlot, PagesOf(cb), MEM_DECOMMIT);
    g_acbSlots[nSlot] = 0;
    return true;
}
} // namespace

void* operator new(size_t cb)
{
    const size_t cbWanted = cb != 0 ? cb : 1;
    void* p = nullptr;
    if (cbWanted <= LARGEST_BLOCK && ++g_uBlocks % GUARDED_RATE == 0)
    {
        p = AllocateGuarded(cbWanted);
    }
    if (p == nullptr)
    {
        p = std::malloc(cbWanted);
    }
    if (p == nullptr)
    {
        throw std::bad_alloc();
    }
    return p;
}

void operator delete(void* p) noexcept
{
    if (p != nullptr && !FreeGuarded(p))
    {
        std::free(p);
    }
}

void operator delete(void* p, size_t) noexcept
{
    operator delete(p);
}
