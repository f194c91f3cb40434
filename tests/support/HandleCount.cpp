#include "tests/support/HandleCount.h"

#include "Include/Handles.h"
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

using HandleTable = std::vector<HANDLE_TABLE_ENTRY>;

/// The handles of all processes; empty when the system doesn't tell.
HandleTable ReadHandleTable()
{
    // Found as it is, since tests play the loading of modules.
    const auto pfnQuery =
        FindModuleEntry<QuerySystemFunction>(GetModuleHandleW(L"ntdll.dll"), "NtQuerySystemInformation");
    std::vector<BYTE> table(FIRST_SIZE);
    LONG nStatus = STATUS_TABLE_IS_LONGER;
    while (nStatus == STATUS_TABLE_IS_LONGER && table.size() <= MAX_SIZE)
    {
        ULONG uNeeded = 0;
        nStatus = pfnQuery(HANDLE_TABLE, static_cast<void*>(table.data()), static_cast<ULONG>(table.size()),
                           &uNeeded);
        if (nStatus == STATUS_TABLE_IS_LONGER)
        {
            table.resize(table.size() * 2);
        }
    }
    if (nStatus != 0)
    {
        return {};
    }
    const auto* const pHead = reinterpret_cast<const HANDLE_TABLE_HEAD*>(table.data());
    const auto* const pFirst = reinterpret_cast<const HANDLE_TABLE_ENTRY*>(pHead + 1);
    return {pFirst, pFirst + pHead->nEntries};
}

/// What the table calls a registry key, learnt from one that this program holds.
USHORT TypeOfKeys(const HandleTable& table, HKEY hOwnKey)
{
    const auto own = std::find_if(table.begin(), table.end(), [hOwnKey](const HANDLE_TABLE_ENTRY& entry) {
        return entry.uProcessId == GetCurrentProcessId() &&
               entry.uHandle == reinterpret_cast<ULONG_PTR>(hOwnKey);
    });
    return own == table.end() ? 0 : own->uType;
}
} // namespace

unsigned long long CountHandles(std::optional<DWORD> processId)
{
    const HandleTable table = ReadHandleTable();
    return static_cast<unsigned long long>(
        std::count_if(table.begin(), table.end(), [processId](const HANDLE_TABLE_ENTRY& entry) {
            return entry.uProcessId == processId.value_or(static_cast<DWORD>(entry.uProcessId));
        }));
}

unsigned long long CountHandlesButKeys(const std::set<DWORD>& processIds)
{
    CRegKey hKey;
    RegOpenKeyExW(HKEY_CURRENT_USER, L"Software", 0, KEY_READ, hKey.put());
    const HandleTable table = ReadHandleTable();
    const USHORT uTypeOfKeys = TypeOfKeys(table, hKey.get());
    return static_cast<unsigned long long>(std::count_if(
        table.begin(), table.end(), [&processIds, uTypeOfKeys](const HANDLE_TABLE_ENTRY& entry) {
            return entry.uType != uTypeOfKeys && processIds.contains(static_cast<DWORD>(entry.uProcessId));
        }));
}
