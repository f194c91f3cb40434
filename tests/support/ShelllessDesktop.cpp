#include "tests/support/ShelllessDesktop.h"

namespace
{
constexpr wchar_t STATION_NAME[] = L"TkdastShelllessStation";
constexpr wchar_t DESKTOP_NAME[] = L"TkdastShelllessDesktop";

/// The process's window station for as long as the object lives.
class StationChange
{
  public:
    explicit StationChange(HWINSTA hStation) : m_hBefore(GetProcessWindowStation())
    {
        SetProcessWindowStation(hStation);
    }
    ~StationChange() { SetProcessWindowStation(m_hBefore); }
    StationChange(const StationChange&) = delete;
    StationChange& operator=(const StationChange&) = delete;

  private:
    HWINSTA m_hBefore;
};
} // namespace

ShelllessDesktop::ShelllessDesktop() : m_hStation(CreateWindowStationW(STATION_NAME, 0, GENERIC_ALL, nullptr))
{
    const StationChange change(m_hStation);
    m_hDesktop = CreateDesktopW(DESKTOP_NAME, nullptr, nullptr, 0, GENERIC_ALL, nullptr);
}

ShelllessDesktop::~ShelllessDesktop()
{
    CloseDesktop(m_hDesktop);
    CloseWindowStation(m_hStation);
}

std::wstring ShelllessDesktop::Name()
{
    return std::wstring(STATION_NAME) + L"\\" + DESKTOP_NAME;
}

bool ShelllessDesktop::TakeThread() const
{
    const StationChange change(m_hStation);
    return SetThreadDesktop(m_hDesktop) != FALSE;
}
