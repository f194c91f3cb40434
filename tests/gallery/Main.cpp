#include "tests/gallery/Exhibits.h"
#include "tests/gallery/FakeTaskbar.h"

#include "Include/BoundedText.h"
#include "startup/TKDAST.h"
#include "tests/support/AgentFolder.h"
#include "tests/support/ColorScheme.h"
#include "tests/support/ImportHook.h"

#include <cstdio>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <uxtheme.h>

/*
 * gallery WINDOW LANGUAGE [--contrast] [--taskbar left|top|right|bottom]
 *
 * Shows one window of the agent in one language, says "shown WIDTHxHEIGHT+X+Y" when it is on the screen, and
 * goes when a line, or the end, of its input arrives. Without arguments it lists the windows. With --contrast
 * the user has asked for high contrast, bright on black.
 */

namespace
{
constexpr int FIRST_OPTION = 3;   // behind program, window and language
constexpr UINT LOOK_PERIOD = 100; // milliseconds; a timer's message comes when all is painted
constexpr DWORD RESOURCES_ONLY = LOAD_LIBRARY_AS_IMAGE_RESOURCE | LOAD_LIBRARY_AS_DATAFILE_EXCLUSIVE;

// The staged agent, whose versions About shows.
DWORD WINAPI NameStagedAgent(HMODULE, LPWSTR pszPath, DWORD cchPath)
{
    return static_cast<DWORD>(CopyText(
        pszPath, cchPath, std::filesystem::path(StageFolder() / L"TKDAST.exe").make_preferred().wstring()));
}

DWORD WINAPI WaitForInput(void*)
{
    (void)std::getchar();
    ExitProcess(0);
}

BOOL CALLBACK AddToRect(HWND hWnd, LPARAM lParam)
{
    RECT window = {};
    RECT* const pAll = reinterpret_cast<RECT*>(lParam);
    if (IsWindowVisible(hWnd) && !IsFakeTaskbar(hWnd) && GetWindowRect(hWnd, &window))
    {
        UnionRect(pAll, pAll, &window);
    }
    return TRUE;
}

// Waits for the exhibit's windows: a menu comes later than the timer.
void CALLBACK TellShown(HWND, UINT, UINT_PTR uTimer, DWORD)
{
    RECT all = {};
    EnumThreadWindows(GetCurrentThreadId(), AddToRect, reinterpret_cast<LPARAM>(&all));
    if (IsRectEmpty(&all))
    {
        return;
    }
    KillTimer(nullptr, uTimer);
    std::printf("shown %ldx%ld+%ld+%ld\n", all.right - all.left, all.bottom - all.top, all.left, all.top);
    std::fflush(stdout);
}

int PrintUsage()
{
    std::fputs("usage: gallery WINDOW LANGUAGE [--contrast] [--taskbar left|top|right|bottom]\n", stderr);
    for (const EXHIBIT* pExhibit = g_exhibits; pExhibit->pszName != nullptr; ++pExhibit)
    {
        std::printf("%-22ls %ls\n", pExhibit->pszName, pExhibit->pszWhat);
    }
    return 2;
}

const EXHIBIT* FindExhibit(std::wstring_view name)
{
    const EXHIBIT* pExhibit = g_exhibits;
    while (pExhibit->pszName != nullptr && name != pExhibit->pszName)
    {
        ++pExhibit;
    }
    return pExhibit->pszName != nullptr ? pExhibit : nullptr;
}

HMODULE LoadLanguage(const std::wstring& language)
{
    std::filesystem::path folder = StageFolder();
    if (language != L"en")
    {
        folder = folder / L"Localization" / language;
    }
    return LoadLibraryExW((folder / L"TKDASTRES.dll").make_preferred().c_str(), nullptr, RESOURCES_ONLY);
}

// The system's theme would draw the controls in its own colours.
void UseHighContrast(std::optional<ColorScheme>& scheme)
{
    EnableTheming(FALSE);
    scheme.emplace();
    scheme->Use(ColorScheme::Black(), true);
}

bool TakeOptions(const std::vector<std::wstring_view>& options, std::optional<ColorScheme>& scheme)
{
    for (size_t nOption = 0; nOption < options.size(); ++nOption)
    {
        if (options[nOption] == L"--contrast" && !scheme)
        {
            UseHighContrast(scheme);
        }
        else if (options[nOption] != L"--taskbar" || nOption + 1 == options.size() ||
                 !ShowFakeTaskbar(options[++nOption]))
        {
            return false;
        }
    }
    return true;
}

void Show(const EXHIBIT& exhibit)
{
    CTaskBarWindow window(0);
    MSG message = {};
    PeekMessageW(&message, window.m_hWnd, WM_AGENT_INIT, WM_AGENT_INIT, PM_REMOVE); // there is no service
    SetTimer(nullptr, 0, LOOK_PERIOD, TellShown);
    exhibit.pfnShow(window);
    while (GetMessageW(&message, nullptr, 0, 0) > 0)
    {
        TranslateMessage(&message);
        DispatchMessageW(&message);
    }
}
} // namespace

int wmain(int argc, wchar_t** argv)
{
    const EXHIBIT* const pExhibit = argc >= FIRST_OPTION ? FindExhibit(argv[1]) : nullptr;
    std::optional<ColorScheme> scheme;
    if (pExhibit == nullptr || !TakeOptions({argv + FIRST_OPTION, argv + argc}, scheme))
    {
        return PrintUsage();
    }
    g_hInstance = GetModuleHandleW(nullptr);
    SetEnvironmentVariableW(L"LangUI", argv[2]); // for modules that hold their words themselves
    g_hResourceModule = LoadLanguage(argv[2]);
    if (g_hResourceModule == nullptr)
    {
        std::fprintf(stderr, "no language module for %ls\n", argv[2]);
        return 1;
    }
    const ImportHook hook("kernel32.dll", "GetModuleFileNameW", &NameStagedAgent);
    CloseHandle(CreateThread(nullptr, 0, WaitForInput, nullptr, 0, nullptr));
    Show(*pExhibit);
    return 0;
}
