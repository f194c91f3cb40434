#pragma once

#include <winsock2.h>
#include <windows.h>
#include <shellapi.h>

#include "fuzz/Choices.h"
#include "tests/support/ImportHook.h"

#include <deque>
#include <map>
#include <vector>

class CTaskBarWindow;

/// The rest of Windows as far as the agent calls it in a round: it answers by the choices, and shows, starts
/// and keeps nothing. The tray window is one that never does anything by itself: what is posted to it waits
/// until it is delivered, and what is sent goes straight to its procedure. Dialogs fail to open. Between
/// rounds everything is as it was. One object at a time, on the thread that plays the round.
class CPlayedSystem
{
  public:
    explicit CPlayedSystem(CChoices& choices);
    ~CPlayedSystem();
    CPlayedSystem(const CPlayedSystem&) = delete;
    CPlayedSystem& operator=(const CPlayedSystem&) = delete;

    /// Delivers what has been posted to the tray window, and what that posts.
    void DeliverPosted();

    /// Takes the next message that was posted to that window; false when there is none.
    bool TakePosted(HWND hWnd, MSG& message);

    /// Lets one of the timers of the tray window fire, if there is any.
    void FireTimer();

    /// The window that the agent takes for its own.
    static HWND TrayWindow();

    /// What DialogBoxParamW runs in the place of a dialog; the dialog's result. Null: the choices decide.
    INT_PTR (*m_pfnDialog)(CPlayedSystem& system, DLGPROC pfnDialog, LPARAM lParam) = nullptr;

    CChoices& Choices() { return m_choices; }

  private:
    struct POSTED
    {
        HWND hWnd;
        UINT uMessage;
        WPARAM wParam;
        LPARAM lParam;
    };

    static CPlayedSystem* s_pThis;
    static HMODULE LanguageModule();
    static HWND ChatWindow();
    static HINSTANCE Instance();
    static HMODULE Resources();

    // user32
    static HWND WINAPI MakeWindow(DWORD dwExStyle, LPCWSTR pszClass, LPCWSTR pszTitle, DWORD dwStyle, int nX,
                                  int nY, int nWidth, int nHeight, HWND hParent, HMENU hMenu,
                                  HINSTANCE hInstance, LPVOID pParam);
    static BOOL WINAPI EndWindow(HWND hWnd);
    static UINT_PTR WINAPI StartTimer(HWND hWnd, UINT_PTR uTimer, UINT uPeriod, TIMERPROC pfnTimer);
    static BOOL WINAPI StopTimer(HWND hWnd, UINT_PTR uTimer);
    static BOOL WINAPI Post(HWND hWnd, UINT uMessage, WPARAM wParam, LPARAM lParam);
    static LRESULT WINAPI Send(HWND hWnd, UINT uMessage, WPARAM wParam, LPARAM lParam);
    static LRESULT WINAPI Default(HWND hWnd, UINT uMessage, WPARAM wParam, LPARAM lParam);
    static void WINAPI PostQuit(int nExitCode);
    static BOOL WINAPI Parameters(UINT uAction, UINT uParam, PVOID pvParam, UINT uFlags);
    static HWND WINAPI Find(LPCWSTR pszClass, LPCWSTR pszTitle);
    static HWND WINAPI MakeDialog(HINSTANCE hInstance, LPCWSTR pszTemplate, HWND hParent, DLGPROC pfnDialog,
                                  LPARAM lParam);
    static INT_PTR WINAPI RunDialog(HINSTANCE hInstance, LPCWSTR pszTemplate, HWND hParent, DLGPROC pfnDialog,
                                    LPARAM lParam);
    static int WINAPI ShowBox(HWND hWnd, LPCWSTR pszText, LPCWSTR pszTitle, UINT uType);
    static BOOL WINAPI ShowMenu(HMENU hMenu, UINT uFlags, int nX, int nY, int nReserved, HWND hWnd,
                                const RECT* pRect);
    static HDESK WINAPI OpenDesktop(DWORD dwFlags, BOOL bInherit, ACCESS_MASK access);
    static BOOL WINAPI CloseDesk(HDESK hDesktop);
    static BOOL WINAPI NameDesktop(HANDLE hObject, int nIndex, PVOID pvName, DWORD cbName, LPDWORD pcbNeeded);
    // shell32
    static BOOL WINAPI ChangeIcon(DWORD dwMessage, PNOTIFYICONDATAW pData);
    static HINSTANCE WINAPI StartByShell(HWND hOwner, LPCWSTR pszVerb, LPCWSTR pszFile, LPCWSTR pszParameters,
                                         LPCWSTR pszDirectory, INT nShow);
    static BOOL WINAPI StartByShellEx(SHELLEXECUTEINFOW* pInfo);
    // kernel32
    static void WINAPI Wait(DWORD dwMilliseconds);
    static BOOL WINAPI StartProcess(LPCWSTR pszProgram, LPWSTR pszCommandLine, LPSECURITY_ATTRIBUTES pProcess,
                                    LPSECURITY_ATTRIBUTES pThread, BOOL bInherit, DWORD dwFlags,
                                    LPVOID pEnvironment, LPCWSTR pszDirectory, LPSTARTUPINFOW pStartup,
                                    LPPROCESS_INFORMATION pInformation);
    static HMODULE WINAPI Load(LPCWSTR pszName, HANDLE hFile, DWORD dwFlags);
    static BOOL WINAPI Free(HMODULE hModule);
    static FARPROC WINAPI FindEntry(HMODULE hModule, LPCSTR pszName);
    static LPVOID WINAPI Allocate(HANDLE hHeap, DWORD dwFlags, SIZE_T cb);
    static BOOL WINAPI Release(HANDLE hHeap, DWORD dwFlags, LPVOID p);
    static BOOL WINAPI SetVariable(LPCWSTR pszName, LPCWSTR pszValue);
    static HANDLE WINAPI OpenOwnProcess(DWORD dwAccess, BOOL bInherit, DWORD dwProcess);
    // advapi32
    static LSTATUS WINAPI OpenKey(HKEY hKey, LPCWSTR pszName, DWORD dwOptions, REGSAM access, PHKEY phKey);
    static LSTATUS WINAPI OpenKeyPlainly(HKEY hKey, LPCWSTR pszName, PHKEY phKey);

    // Looked up while nothing is replaced yet.
    const HMODULE m_hLanguage = LanguageModule();
    const HWND m_hTrayWindow = TrayWindow();
    const HWND m_hChatWindow = ChatWindow();
    const HINSTANCE m_hInstanceBefore = Instance();
    const HMODULE m_hResourcesBefore = Resources();

    CChoices& m_choices;
    std::deque<POSTED> m_posted;
    std::vector<UINT_PTR> m_timers;
    std::map<void*, void*> m_blocks; // address and the pages that it lies in

    ImportHook<decltype(MakeWindow)> m_makeWindow{"user32.dll", "CreateWindowExW", &MakeWindow};
    ImportHook<decltype(EndWindow)> m_endWindow{"user32.dll", "DestroyWindow", &EndWindow};
    ImportHook<decltype(StartTimer)> m_startTimer{"user32.dll", "SetTimer", &StartTimer};
    ImportHook<decltype(StopTimer)> m_stopTimer{"user32.dll", "KillTimer", &StopTimer};
    ImportHook<decltype(Post)> m_post{"user32.dll", "PostMessageW", &Post};
    ImportHook<decltype(Send)> m_send{"user32.dll", "SendMessageW", &Send};
    ImportHook<decltype(Default)> m_default{"user32.dll", "DefWindowProcW", &Default};
    ImportHook<decltype(PostQuit)> m_postQuit{"user32.dll", "PostQuitMessage", &PostQuit};
    ImportHook<decltype(Parameters)> m_parameters{"user32.dll", "SystemParametersInfoW", &Parameters};
    ImportHook<decltype(Find)> m_find{"user32.dll", "FindWindowW", &Find};
    ImportHook<decltype(MakeDialog)> m_makeDialog{"user32.dll", "CreateDialogParamW", &MakeDialog};
    ImportHook<decltype(RunDialog)> m_runDialog{"user32.dll", "DialogBoxParamW", &RunDialog};
    ImportHook<decltype(ShowBox)> m_showBox{"user32.dll", "MessageBoxW", &ShowBox};
    ImportHook<decltype(ShowMenu)> m_showMenu{"user32.dll", "TrackPopupMenu", &ShowMenu};
    ImportHook<decltype(OpenDesktop)> m_openDesktop{"user32.dll", "OpenInputDesktop", &OpenDesktop};
    ImportHook<decltype(CloseDesk)> m_closeDesktop{"user32.dll", "CloseDesktop", &CloseDesk};
    ImportHook<decltype(NameDesktop)> m_nameDesktop{"user32.dll", "GetUserObjectInformationW", &NameDesktop};
    ImportHook<decltype(ChangeIcon)> m_changeIcon{"shell32.dll", "Shell_NotifyIconW", &ChangeIcon};
    ImportHook<decltype(StartByShell)> m_startByShell{"shell32.dll", "ShellExecuteW", &StartByShell};
    ImportHook<decltype(StartByShellEx)> m_startByShellEx{"shell32.dll", "ShellExecuteExW", &StartByShellEx};
    ImportHook<decltype(Wait)> m_wait{"kernel32.dll", "Sleep", &Wait};
    ImportHook<decltype(StartProcess)> m_startProcess{"kernel32.dll", "CreateProcessW", &StartProcess};
    ImportHook<decltype(Load)> m_load{"kernel32.dll", "LoadLibraryExW", &Load};
    ImportHook<decltype(Free)> m_free{"kernel32.dll", "FreeLibrary", &Free};
    ImportHook<decltype(FindEntry)> m_findEntry{"kernel32.dll", "GetProcAddress", &FindEntry};
    ImportHook<decltype(Allocate)> m_allocate{"kernel32.dll", "HeapAlloc", &Allocate};
    ImportHook<decltype(Release)> m_release{"kernel32.dll", "HeapFree", &Release};
    ImportHook<decltype(SetVariable)> m_setVariable{"kernel32.dll", "SetEnvironmentVariableW", &SetVariable};
    ImportHook<decltype(OpenOwnProcess)> m_openProcess{"kernel32.dll", "OpenProcess", &OpenOwnProcess};
    ImportHook<decltype(OpenKey)> m_openKey{"advapi32.dll", "RegOpenKeyExW", &OpenKey};
    ImportHook<decltype(OpenKeyPlainly)> m_openKeyPlainly{"advapi32.dll", "RegOpenKeyW", &OpenKeyPlainly};
};
