#include "tests/support/StackPrinter.h"

#include <array>
#include <cstdio>
#include <vector>

#include <dbghelp.h>
#include <tlhelp32.h>

namespace
{
constexpr size_t MAX_FRAMES = 48;
constexpr size_t MAX_SYMBOL_CHARACTERS = 512;

struct Frames
{
    std::array<DWORD64, MAX_FRAMES> addresses;
    size_t nCount = 0;
};

Frames GatherFrames(CONTEXT context)
{
    Frames frames;
    while (frames.nCount < MAX_FRAMES && context.Rip != 0)
    {
        frames.addresses[frames.nCount++] = context.Rip;
        DWORD64 qwImageBase = 0;
        RUNTIME_FUNCTION* pFunction = RtlLookupFunctionEntry(context.Rip, &qwImageBase, nullptr);
        if (pFunction == nullptr)
        {
            // A leaf has no entry: its return address is on top of the stack.
            context.Rip = context.Rsp != 0 ? *reinterpret_cast<const DWORD64*>(context.Rsp) : 0;
            context.Rsp += sizeof(DWORD64);
            continue;
        }
        void* pHandlerData = nullptr;
        DWORD64 qwFrame = 0;
        RtlVirtualUnwind(UNW_FLAG_NHANDLER, qwImageBase, context.Rip, pFunction, &context, &pHandlerData,
                         &qwFrame, nullptr);
    }
    return frames;
}

void PrintFrame(DWORD64 qwAddress)
{
    struct
    {
        SYMBOL_INFO info;
        char achRest[MAX_SYMBOL_CHARACTERS];
    } symbol = {};
    symbol.info.SizeOfStruct = sizeof(symbol.info);
    symbol.info.MaxNameLen = MAX_SYMBOL_CHARACTERS;
    IMAGEHLP_LINE64 line = {};
    line.SizeOfStruct = sizeof(line);
    IMAGEHLP_MODULE64 module = {};
    module.SizeOfStruct = sizeof(module);
    DWORD64 qwOffset = 0;
    DWORD dwColumn = 0;
    const HANDLE hProcess = GetCurrentProcess();
    const char* pszModule = SymGetModuleInfo64(hProcess, qwAddress, &module) ? module.ModuleName : "?";
    const bool bNamed = SymFromAddr(hProcess, qwAddress, &qwOffset, &symbol.info) != FALSE;
    std::fprintf(stderr, "    %016llx %s!%s+0x%llx", static_cast<unsigned long long>(qwAddress), pszModule,
                 bNamed ? symbol.info.Name : "?",
                 static_cast<unsigned long long>(bNamed ? qwOffset : qwAddress - module.BaseOfImage));
    if (SymGetLineFromAddr64(hProcess, qwAddress, &dwColumn, &line))
    {
        std::fprintf(stderr, " (%s:%lu)", line.FileName, line.LineNumber);
    }
    std::fputc('\n', stderr);
}

void PrintFrames(const Frames& frames)
{
    static const bool s_bSymbols = [] {
        SymSetOptions(SYMOPT_LOAD_LINES | SYMOPT_UNDNAME);
        return SymInitialize(GetCurrentProcess(), nullptr, TRUE) != FALSE;
    }();
    if (!s_bSymbols)
    {
        std::fputs("    (no symbols)\n", stderr);
    }
    for (size_t nFrame = 0; nFrame < frames.nCount; ++nFrame)
    {
        PrintFrame(frames.addresses[nFrame]);
    }
    std::fflush(stderr);
}

std::vector<DWORD> OtherThreads()
{
    std::vector<DWORD> threads;
    const HANDLE hSnapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    if (hSnapshot == INVALID_HANDLE_VALUE)
    {
        return threads;
    }
    THREADENTRY32 entry = {};
    entry.dwSize = sizeof(entry);
    for (BOOL bMore = Thread32First(hSnapshot, &entry); bMore; bMore = Thread32Next(hSnapshot, &entry))
    {
        if (entry.th32OwnerProcessID == GetCurrentProcessId() && entry.th32ThreadID != GetCurrentThreadId())
        {
            threads.push_back(entry.th32ThreadID);
        }
    }
    CloseHandle(hSnapshot);
    return threads;
}

Frames GatherThread(HANDLE hThread)
{
    Frames frames;
    if (SuspendThread(hThread) == static_cast<DWORD>(-1))
    {
        return frames;
    }
    CONTEXT context = {};
    context.ContextFlags = CONTEXT_FULL;
    if (GetThreadContext(hThread, &context))
    {
        frames = GatherFrames(context);
    }
    ResumeThread(hThread);
    return frames;
}
} // namespace

void PrintStack(const CONTEXT& context)
{
    PrintFrames(GatherFrames(context));
}

void PrintOtherThreads()
{
    for (const DWORD dwThread : OtherThreads())
    {
        const HANDLE hThread = OpenThread(THREAD_SUSPEND_RESUME | THREAD_GET_CONTEXT, FALSE, dwThread);
        if (hThread == nullptr)
        {
            continue;
        }
        const Frames frames = GatherThread(hThread);
        CloseHandle(hThread);
        std::fprintf(stderr, "  thread %lu:\n", dwThread);
        PrintFrames(frames);
    }
}
