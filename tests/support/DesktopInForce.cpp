#include "tests/support/DesktopInForce.h"

#include "Include/Handles.h"
#include "tests/support/AgentFolder.h"
#include "tests/support/DesktopEffects.h"

#include <sstream>
#include <string_view>

namespace
{
constexpr char ON[] = "on";
constexpr char OFF[] = "off";

/// All that a program writes to its standard output until it ends.
std::string OutputOf(std::wstring commandLine)
{
    SECURITY_ATTRIBUTES inheritable = {sizeof(inheritable), nullptr, TRUE};
    CKernelHandle hRead;
    CKernelHandle hWrite;
    if (!CreatePipe(hRead.put(), hWrite.put(), &inheritable, 0))
    {
        return {};
    }
    SetHandleInformation(hRead.get(), HANDLE_FLAG_INHERIT, 0);
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = hWrite.get();
    startup.hStdError = GetStdHandle(STD_ERROR_HANDLE);
    PROCESS_INFORMATION process = {};
    if (!CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                        &process))
    {
        return {};
    }
    const CKernelHandle hProcess(process.hProcess);
    const CKernelHandle hThread(process.hThread);
    hWrite.reset(); // the program's own end is the last: reading ends with it
    std::string output;
    char achPart[1024];
    DWORD dwRead = 0;
    while (ReadFile(hRead.get(), achPart, sizeof(achPart), &dwRead, nullptr) && dwRead > 0)
    {
        output.append(achPart, dwRead);
    }
    WaitForSingleObject(hProcess.get(), INFINITE);
    return output;
}

void PutText(UINT uAction, const std::string& text)
{
    std::wstring wide(text.begin(), text.end());
    SystemParametersInfoW(uAction, 0, wide.data(), 0);
}

void PutEffect(const DESKTOP_EFFECT_CALLS& effect, bool bOn)
{
    const UINT uValue = bOn ? 1 : 0;
    SystemParametersInfoW(
        effect.uSetAction, effect.bValueInUiParam ? uValue : 0,
        effect.bValueInUiParam ? nullptr : reinterpret_cast<void*>(static_cast<ULONG_PTR>(uValue)), 0);
}
} // namespace

DesktopInForce ReadDesktopInForce()
{
    const std::filesystem::path program = TestProgramFolder() / L"testmodules" / L"desktop_probe.exe";
    std::istringstream output(OutputOf(L"\"" + program.wstring() + L"\""));
    DesktopInForce desktop;
    for (std::string line; std::getline(output, line);)
    {
        line.erase(line.find_last_not_of('\r') + 1);
        const size_t nEquals = line.find('=');
        desktop[line.substr(0, nEquals)] = line.substr(nEquals + 1);
    }
    return desktop;
}

void PutDesktopInForce(const DesktopInForce& desktop)
{
    PutText(SPI_SETDESKPATTERN, desktop.at(PATTERN_NAME));
    PutText(SPI_SETDESKWALLPAPER, desktop.at(WALLPAPER_NAME));
    for (const DESKTOP_EFFECT_CALLS& effect : DESKTOP_EFFECT_TABLE)
    {
        PutEffect(effect, desktop.at(effect.pszName) == ON);
    }
}

DesktopInForce SwitchedOff(DesktopInForce desktop, DWORD dwOptions)
{
    if ((dwOptions & PATTERN_OPTION) != 0)
    {
        desktop[PATTERN_NAME].clear();
    }
    if ((dwOptions & WALLPAPER_OPTION) != 0)
    {
        desktop[WALLPAPER_NAME].clear();
    }
    for (const DESKTOP_EFFECT_CALLS& effect : DESKTOP_EFFECT_TABLE)
    {
        if ((dwOptions & effect.dwOption) != 0)
        {
            desktop[effect.pszName] = OFF;
        }
    }
    return desktop;
}
