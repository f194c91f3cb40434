#include "Include/UtilSettings.h"

#include "Include/BoundedText.h"
#include "Include/Handles.h"
#include "Include/Pause.h"
#include "Include/Product.h"
#include "Include/SystemCall.h"
#include "Include/TKLogging.h"
#include "Include/UtilFile.h"
#include "Include/UtilRegistry.h"
#include "Include/UtilResource.h"
#include "resources/resource.h"
#include "startup/CommandLine.h"
#include "startup/TKDAST.h"

#include <shellapi.h>

#include <string>

namespace
{
const log4cxx::LoggerPtr& g_pLogger = TKGetLogger("UtilSettings");

constexpr wchar_t APPLICATION_TITLE[] = L"TKKDAS"; // of the service's window where it is an application
constexpr int CLOSE_ROUNDS = 12;
constexpr DWORD CLOSE_PAUSE = 500; // milliseconds

constexpr wchar_t SERVICE_PROGRAM[] = L"TKDAS.EXE";
constexpr INT_PTR LEAST_SERVICE_START = 32; // ShellExecuteW answers errors below
constexpr INT_PTR LEAST_SETTINGS_START = 33;

constexpr size_t MAX_QUESTION = 260; // characters, terminator included
constexpr UINT QUESTION_STYLE = MB_YESNO | MB_ICONINFORMATION | MB_DEFBUTTON2;
static_assert(QUESTION_STYLE == 324);

// What the settings module exports.
using SETTINGS_DIALOG_FUNCTION = int (*)(HWND hOwner); // non-zero: the dialog succeeded
using APPLICATION_MODE_FUNCTION = void (*)();          // before the dialog

bool StartWithShell(HWND hOwner, const wchar_t* pszPath, const wchar_t* pszParameters,
                    const wchar_t* pszDirectory, INT_PTR nLeastSuccess)
{
    const HINSTANCE hResult = ShellExecuteW(hOwner, L"open", pszPath, pszParameters, pszDirectory, SW_SHOW);
    return reinterpret_cast<INT_PTR>(hResult) >= nLeastSuccess;
}

// Empty when the path isn't known or too long: a part of it would be the path of something else.
std::wstring QuotedProgramPath()
{
    wchar_t szProgram[MAX_PATH] = {};
    const DWORD cchProgram = GetModuleFileNameW(g_hInstance, szProgram, MAX_PATH);
    std::wstring quoted = L'"' + std::wstring(szProgram) + L'"';
    return cchProgram != 0 && quoted.size() < MAX_PATH ? quoted : std::wstring();
}

bool IsOpeningWanted(HWND hOwner)
{
    return CanWriteMachineSettings() ||
           MessageBoxW(hOwner, LoadResourceText(IDS_ASK_SETTINGS_NOT_STORED, MAX_QUESTION).c_str(),
                       PRODUCT_NAME, QUESTION_STYLE) != IDNO;
}
} // namespace

bool KillApplication()
{
    HWND hWnd = FindWindowW(nullptr, APPLICATION_TITLE);
    for (int nRound = 0; nRound < CLOSE_ROUNDS && IsWindow(hWnd); ++nRound)
    {
        PostMessageW(hWnd, WM_CLOSE, 0, 0);
        PauseThread(CLOSE_PAUSE);
        hWnd = FindWindowW(nullptr, APPLICATION_TITLE);
    }
    PauseThread(CLOSE_PAUSE);
    return !IsWindow(hWnd);
}

bool RestartService()
{
    return KillApplication() && StartAsService();
}

bool StartAsService()
{
    wchar_t szDirectory[MAX_PATH] = {};
    GetProgramDirectory(szDirectory, MAX_PATH);
    // By its bare name the system would look for the program elsewhere.
    return szDirectory[0] != L'\0' &&
           StartWithShell(nullptr, (std::wstring(szDirectory) + SERVICE_PROGRAM).c_str(), L"-service",
                          nullptr, LEAST_SERVICE_START);
}

void SetApplicationMode(HINSTANCE hModule)
{
    TK_LOG_INFO(g_pLogger, L"SetApplicationMode");
    const auto pfnSetMode = FindModuleEntry<APPLICATION_MODE_FUNCTION>(hModule, "TKDA_SetApplicationMode");
    if (pfnSetMode != nullptr)
    {
        pfnSetMode();
    }
}

bool DisplaySettingsDialog(HWND owner, int checkRights)
{
    const TKLogBlock block(L"DisplaySettingsDialog", g_pLogger);
    if (checkRights != 0 && !IsOpeningWanted(owner))
    {
        return false;
    }
    const CModule hModule(KDA_LoadLibrary(SETTINGS_MODULE));
    if (!hModule)
    {
        return false;
    }
    if (checkRights == 0)
    {
        SetApplicationMode(hModule.get());
    }
    const auto pfnDialog = FindModuleEntry<SETTINGS_DIALOG_FUNCTION>(hModule.get(), "TKDA_SettingsDialog");
    return pfnDialog != nullptr && pfnDialog(owner) != 0;
}

bool ExecuteSettingsDialog(HWND owner, int elevate)
{
    const TKLogBlock block(L"ExecuteSettingsDialog", g_pLogger);
    const std::wstring program = QuotedProgramPath();
    if (program.empty())
    {
        return false;
    }
    if (elevate != 0)
    {
        TK_LOG_INFO(g_pLogger, L"Running self with -Settings");
        return TKShellExec(owner, L"runas", program.c_str(), SETTINGS_SWITCH, nullptr) != 0;
    }
    TK_LOG_INFO(g_pLogger, L"Running self with -SettingsAsApplication");
    return StartWithShell(owner, program.c_str(), SETTINGS_AS_APPLICATION_SWITCH, L"", LEAST_SETTINGS_START);
}

bool GetElevationLimited(unsigned int* limited)
{
    *limited = 0;
    CKernelHandle hToken;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, hToken.put()))
    {
        return false;
    }
    TOKEN_ELEVATION_TYPE type = TokenElevationTypeDefault;
    DWORD cbType = 0;
    if (!GetTokenInformation(hToken.get(), TokenElevationType, &type, sizeof(type), &cbType))
    {
        return false;
    }
    *limited = type == TokenElevationTypeLimited ? 1 : 0;
    return true;
}
