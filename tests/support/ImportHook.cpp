#include "tests/support/ImportHook.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <windows.h>

namespace
{
constexpr std::uintptr_t MAX_ORDINAL = 0xFFFF;

[[noreturn]] void Fail(const char* pszReason, const char* pszModule, const char* pszFunction)
{
    const bool bOrdinal = reinterpret_cast<std::uintptr_t>(pszFunction) <= MAX_ORDINAL;
    std::fprintf(stderr, "ImportHook: %s: %s!%s\n", pszReason, pszModule,
                 bOrdinal ? "(ordinal)" : pszFunction);
    std::fflush(stderr);
    std::abort();
}

BYTE* ImageBase()
{
    return reinterpret_cast<BYTE*>(GetModuleHandleW(nullptr));
}

const IMAGE_IMPORT_DESCRIPTOR* FirstImport()
{
    BYTE* pBase = ImageBase();
    const auto* pDos = reinterpret_cast<const IMAGE_DOS_HEADER*>(pBase);
    const auto* pNt = reinterpret_cast<const IMAGE_NT_HEADERS*>(pBase + pDos->e_lfanew);
    const IMAGE_DATA_DIRECTORY& directory = pNt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    return reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(pBase + directory.VirtualAddress);
}

bool IsFunction(const IMAGE_THUNK_DATA& name, const char* pszFunction)
{
    const auto nWanted = reinterpret_cast<std::uintptr_t>(pszFunction);
    if (IMAGE_SNAP_BY_ORDINAL(name.u1.Ordinal))
    {
        return nWanted <= MAX_ORDINAL && IMAGE_ORDINAL(name.u1.Ordinal) == nWanted;
    }
    if (nWanted <= MAX_ORDINAL)
    {
        return false;
    }
    const auto* pByName = reinterpret_cast<const IMAGE_IMPORT_BY_NAME*>(ImageBase() + name.u1.AddressOfData);
    return std::strcmp(reinterpret_cast<const char*>(pByName->Name), pszFunction) == 0;
}

/// The slots that hold the function; pszModule null takes them from every module.
std::vector<void**> FindSlots(const char* pszModule, const char* pszFunction)
{
    std::vector<void**> slots;
    BYTE* pBase = ImageBase();
    for (const IMAGE_IMPORT_DESCRIPTOR* pImport = FirstImport(); pImport->Name != 0; ++pImport)
    {
        const auto* pszImported = reinterpret_cast<const char*>(pBase + pImport->Name);
        if (pszModule != nullptr && _stricmp(pszImported, pszModule) != 0)
        {
            continue;
        }
        const auto* pName = reinterpret_cast<const IMAGE_THUNK_DATA*>(pBase + pImport->OriginalFirstThunk);
        auto* pTarget = reinterpret_cast<IMAGE_THUNK_DATA*>(pBase + pImport->FirstThunk);
        for (; pName->u1.AddressOfData != 0; ++pName, ++pTarget)
        {
            if (IsFunction(*pName, pszFunction))
            {
                slots.push_back(reinterpret_cast<void**>(&pTarget->u1.Function));
            }
        }
    }
    return slots;
}

bool StoreTarget(void** ppTarget, void* pFunction)
{
    DWORD dwProtection = 0;
    if (!VirtualProtect(ppTarget, sizeof(*ppTarget), PAGE_READWRITE, &dwProtection))
    {
        return false;
    }
    InterlockedExchangePointer(ppTarget, pFunction);
    // The page stays writable: another slot of it may be changed by the next hook, and putting the old
    // protection back between two hooks would race with a nested one.
    return true;
}
} // namespace

ImportTablePatch::ImportTablePatch(const char* pszModule, const char* pszFunction, void* pReplacement)
    : m_pReplacement(pReplacement), m_pszFunction(pszFunction)
{
    std::vector<void**> targets = FindSlots(pszModule, pszFunction);
    if (targets.empty() && reinterpret_cast<std::uintptr_t>(pszFunction) > MAX_ORDINAL)
    {
        targets = FindSlots(nullptr, pszFunction);
    }
    if (targets.empty())
    {
        Fail("the executable does not import", pszModule, pszFunction);
    }
    for (void** ppTarget : targets)
    {
        m_slots.push_back({ppTarget, *ppTarget});
        if (!StoreTarget(ppTarget, pReplacement))
        {
            Fail("the import table can't be written for", pszModule, pszFunction);
        }
    }
}

ImportTablePatch::~ImportTablePatch()
{
    for (const Slot& slot : m_slots)
    {
        if (*slot.ppTarget != m_pReplacement)
        {
            Fail("hooks ended out of order on", "import table", m_pszFunction);
        }
        StoreTarget(slot.ppTarget, slot.pPrevious);
    }
}
