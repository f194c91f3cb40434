#include "tests/support/chatmodule/ChatTrace.h"

#include "tray/TrayWindowMessages.h"

// An entry that the module lacks is there and isn't exported.
#ifdef TEST_CHAT_WITHOUT_create
#define CREATE_ENTRY
#else
#define CREATE_ENTRY __declspec(dllexport)
#endif
#ifdef TEST_CHAT_WITHOUT_append
#define APPEND_ENTRY
#else
#define APPEND_ENTRY __declspec(dllexport)
#endif
#ifdef TEST_CHAT_WITHOUT_close
#define CLOSE_ENTRY
#else
#define CLOSE_ENTRY __declspec(dllexport)
#endif

namespace
{
constexpr wchar_t CLASS_NAME[] = L"TkdastTestChatWindow";
constexpr int WINDOW_SIZE = 200;

HINSTANCE g_hModule;
HANDLE g_hMapping;
CHAT_TRACE* g_pView;
CHAT_TRACE g_ownTrace = MakeChatTrace();

CHAT_TRACE& Trace()
{
    return g_pView != nullptr ? *g_pView : g_ownTrace;
}

void OpenTrace()
{
    g_hMapping = OpenFileMappingW(FILE_MAP_WRITE, FALSE, CHAT_TRACE_NAME);
    if (g_hMapping != nullptr)
    {
        g_pView =
            static_cast<CHAT_TRACE*>(MapViewOfFile(g_hMapping, FILE_MAP_WRITE, 0, 0, sizeof(CHAT_TRACE)));
    }
}

void CloseTrace()
{
    if (g_pView != nullptr)
    {
        UnmapViewOfFile(g_pView);
    }
    if (g_hMapping != nullptr)
    {
        CloseHandle(g_hMapping);
    }
}

void OnNotice(UINT uMessage, const CHAT_CONNECT_NOTICE& notice)
{
    CHAT_TRACE& trace = Trace();
    trace.uLastNotice = uMessage;
    trace.lastNotice = notice;
    InterlockedIncrement(&trace.nNotices);
}

void OnDestroy(HWND hWnd)
{
    CHAT_TRACE& trace = Trace();
    InterlockedDecrement(&trace.nWindows);
    if (trace.bGoesSilently == 0)
    {
        SendMessageW(GetWindow(hWnd, GW_OWNER), WM_CHAT_WINDOW_GONE, 0, 0);
    }
}

LRESULT CALLBACK ChatProcedure(HWND hWnd, UINT uMessage, WPARAM wParam, LPARAM lParam)
{
    switch (uMessage)
    {
    case WM_CHAT_USER_CONNECTED:
    case WM_CHAT_USER_DISCONNECTED:
        OnNotice(uMessage, *reinterpret_cast<const CHAT_CONNECT_NOTICE*>(wParam));
        return 0;
    case WM_DESTROY:
        OnDestroy(hWnd);
        return 0;
    default:
        return DefWindowProcW(hWnd, uMessage, wParam, lParam);
    }
}

void RegisterChatClass()
{
    WNDCLASSW windowClass = {};
    windowClass.lpfnWndProc = ChatProcedure;
    windowClass.hInstance = g_hModule;
    windowClass.lpszClassName = CLASS_NAME;
    RegisterClassW(&windowClass); // fails from the second time on, with the same result
}
} // namespace

BOOL WINAPI DllMain(HINSTANCE hModule, DWORD dwReason, void*)
{
    if (dwReason == DLL_PROCESS_ATTACH)
    {
        g_hModule = hModule;
        OpenTrace();
        InterlockedIncrement(&Trace().nLoads);
    }
    else if (dwReason == DLL_PROCESS_DETACH)
    {
        UnregisterClassW(CLASS_NAME, g_hModule);
        CloseTrace();
    }
    return TRUE;
}

extern "C" CREATE_ENTRY HWND __cdecl TKDA_CreateChatWindow(HWND hOwner)
{
    CHAT_TRACE& trace = Trace();
    InterlockedIncrement(&trace.nCreated);
    trace.hOwner = hOwner;
    trace.dwThreadId = GetCurrentThreadId();
    if (trace.bCreateFails != 0)
    {
        return nullptr;
    }
    RegisterChatClass();
    trace.hChatWindow = CreateWindowExW(WS_EX_NOACTIVATE, CLASS_NAME, TEST_CHAT_TITLE, WS_POPUP | WS_CAPTION,
                                        0, 0, WINDOW_SIZE, WINDOW_SIZE, hOwner, nullptr, g_hModule, nullptr);
    InterlockedIncrement(&trace.nWindows);
    ShowWindow(trace.hChatWindow, SW_SHOWNOACTIVATE);
    return trace.hChatWindow;
}

extern "C" APPEND_ENTRY void __cdecl TKDA_AppendChatMessage(HWND hChatWindow,
                                                            const MSG_CHAT_MESSAGE* pMessage)
{
    CHAT_TRACE& trace = Trace();
    const size_t nBytes = sizeof(*pMessage) + pMessage->dwMessageLength;
    trace.hAppendedTo = hChatWindow;
    trace.lastHead = *pMessage;
    trace.uBytes += nBytes;
    trace.uHash = HashChatBytes(trace.uHash, pMessage, nBytes);
    InterlockedIncrement(&trace.nAppended);
}

extern "C" CLOSE_ENTRY void __cdecl TKDA_CloseChatWindow()
{
    InterlockedIncrement(&Trace().nClosed);
}
