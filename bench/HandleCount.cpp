#include "bench/HandleCount.h"

#include "Include/SystemCall.h"

#include <algorithm>
#include <vector>

namespace
{
// GetProcessHandleCount answers zero under Wine; this table is there on both systems. No header has it.
constexpr ULONG HANDLE_TABLE = 64; // SystemExtendedHandleInformation
constexpr LONG STATUS_TABLE_IS_LONGER = static_cast<LONG>(0xC0000004);
constexpr size_t FIRST_SIZE = 1 << 20; // bytes
constexpr size_t MAX_SIZE = 1 << 28;   // bytes

struct HANDLE_TABLE_ENTRY
{
    void* pObject;
    ULONG_PTR uProcessId;
    ULONG_PTR uHandle;
    ULONG uAccess;
    USHORT uTraceIndex;
    USHORT uType;
    ULONG uAttributes;
    ULONG uReserved;
};
static_assert(sizeof(HANDLE_TABLE_ENTRY) == 40);

struct HANDLE_TABLE_HEAD
{
    ULONG_PTR nEntries;
    ULONG_PTR uReserved;
};

using QuerySystemFunction = LONG(WINAPI*)(ULONG, void*, ULONG, ULONG*);
} // namespace

unsigned long long CountHandles(DWORD dwProcessId)
{
    const CSystemCall<QuerySystemFunction> query(L"ntdll.dll", "NtQuerySystemInformation");
    std::vector<BYTE> table(FIRST_SIZE);
    LONG nStatus = STATUS_TABLE_IS_LONGER;
    while (query && nStatus == STATUS_TABLE_IS_LONGER && table.size() <= MAX_SIZE)
    {
        ULONG uNeeded = 0;
        nStatus =
            query(HANDLE_TABLE, static_cast<void*>(table.data()), static_cast<ULONG>(table.size()), &uNeeded);
        if (nStatus == STATUS_TABLE_IS_LONGER)
        {
            table.resize(table.size() * 2);
        }
    }
    if (nStatus != 0)
    {
        return 0;
    }
    const auto* const pHead = reinterpret_cast<const HANDLE_TABLE_HEAD*>(table.data());
    const auto* const pFirst = reinterpret_cast<const HANDLE_TABLE_ENTRY*>(pHead + 1);
    return static_cast<unsigned long long>(
        std::count_if(pFirst, pFirst + pHead->nEntries, [dwProcessId](const HANDLE_TABLE_ENTRY& entry) {
            return entry.uProcessId == dwProcessId;
        }));
}
