#include "tests/support/LogonSession.h"

#include "Include/SystemCall.h"

#include <cstddef>
#include <cwchar>
#include <string>

#include <winternl.h>

namespace
{
constexpr wchar_t NATIVE_MODULE[] = L"ntdll.dll";
constexpr ACCESS_MASK ALL_OF_A_FOLDER = STANDARD_RIGHTS_REQUIRED | 0xF;
constexpr ACCESS_MASK ALL_OF_A_LINK = STANDARD_RIGHTS_REQUIRED | 0x1;
static_assert(offsetof(PEB, SessionId) == 0x2C0);

using CreateFolderFunction = NTSTATUS(NTAPI*)(HANDLE*, ACCESS_MASK, OBJECT_ATTRIBUTES*);
using CreateLinkFunction = NTSTATUS(NTAPI*)(HANDLE*, ACCESS_MASK, OBJECT_ATTRIBUTES*, UNICODE_STRING*);
using QueryProcessFunction = decltype(&NtQueryInformationProcess);

template <typename Function>
Function FindNative(const char* pszName)
{
    return FindModuleEntry<Function>(GetModuleHandleW(NATIVE_MODULE), pszName);
}

/// A view of the text, which must outlive it.
UNICODE_STRING View(const std::wstring& text)
{
    UNICODE_STRING view = {};
    view.Length = static_cast<USHORT>(text.size() * sizeof(wchar_t));
    view.MaximumLength = view.Length;
    view.Buffer = const_cast<wchar_t*>(text.data());
    return view;
}

OBJECT_ATTRIBUTES Named(UNICODE_STRING& name)
{
    OBJECT_ATTRIBUTES attributes = {};
    attributes.Length = sizeof(attributes);
    attributes.ObjectName = &name;
    return attributes;
}

std::wstring SessionFolder(DWORD dwId)
{
    return L"\\Sessions\\" + std::to_wstring(dwId);
}

DWORD OwnSession()
{
    DWORD dwSession = 0;
    ProcessIdToSessionId(GetCurrentProcessId(), &dwSession);
    return dwSession;
}
} // namespace

LogonSession::LogonSession(DWORD dwId) : m_dwId(dwId), m_bThere(MakeNames()) {}

bool LogonSession::Take(HANDLE hProcess) const
{
    const auto pfnQuery = FindNative<QueryProcessFunction>("NtQueryInformationProcess");
    PROCESS_BASIC_INFORMATION information = {};
    return pfnQuery != nullptr &&
           NT_SUCCESS(
               pfnQuery(hProcess, ProcessBasicInformation, &information, sizeof(information), nullptr)) &&
           WriteProcessMemory(hProcess, &information.PebBaseAddress->SessionId, &m_dwId, sizeof(m_dwId),
                              nullptr);
}

bool LogonSession::MakeNames()
{
    const std::wstring session = SessionFolder(m_dwId);
    const std::wstring objects = session + L"\\BaseNamedObjects";
    return AddFolder(session) && AddFolder(objects) && AddLink(objects + L"\\Local", objects) &&
           AddLink(objects + L"\\Global", L"\\BaseNamedObjects") &&
           AddLink(session + L"\\Windows", SessionFolder(OwnSession()) + L"\\Windows");
}

bool LogonSession::AddFolder(const std::wstring& name)
{
    const auto pfnCreate = FindNative<CreateFolderFunction>("NtCreateDirectoryObject");
    UNICODE_STRING view = View(name);
    OBJECT_ATTRIBUTES attributes = Named(view);
    return pfnCreate != nullptr &&
           NT_SUCCESS(pfnCreate(m_names.emplace_back().put(), ALL_OF_A_FOLDER, &attributes));
}

bool LogonSession::AddLink(const std::wstring& name, const std::wstring& target)
{
    const auto pfnCreate = FindNative<CreateLinkFunction>("NtCreateSymbolicLinkObject");
    UNICODE_STRING view = View(name);
    UNICODE_STRING targetView = View(target);
    OBJECT_ATTRIBUTES attributes = Named(view);
    return pfnCreate != nullptr &&
           NT_SUCCESS(pfnCreate(m_names.emplace_back().put(), ALL_OF_A_LINK, &attributes, &targetView));
}
