#include "tests/unit/ModalScenario.h"

#include <utility>

namespace
{
constexpr UINT LOOK_PERIOD = 10; // milliseconds
constexpr wchar_t DIALOG_CLASS[] = L"#32770";

BOOL CALLBACK TakeVisibleDialog(HWND hWnd, LPARAM lParam)
{
    wchar_t szClass[16] = {};
    GetClassNameW(hWnd, szClass, 16);
    if (lstrcmpW(szClass, DIALOG_CLASS) != 0 || !IsWindowVisible(hWnd))
    {
        return TRUE;
    }
    *reinterpret_cast<HWND*>(lParam) = hWnd;
    return FALSE;
}
} // namespace

ModalScenario* ModalScenario::s_pThis = nullptr;

ModalScenario::ModalScenario(std::function<void(HWND)> scenario)
    : m_scenario(std::move(scenario)), m_uTimer(SetTimer(nullptr, 0, LOOK_PERIOD, LookForDialog))
{
    s_pThis = this;
}

ModalScenario::~ModalScenario()
{
    KillTimer(nullptr, m_uTimer);
    s_pThis = nullptr;
}

void CALLBACK ModalScenario::LookForDialog(HWND, UINT, UINT_PTR uTimer, DWORD)
{
    HWND hDialog = nullptr;
    EnumThreadWindows(GetCurrentThreadId(), TakeVisibleDialog, reinterpret_cast<LPARAM>(&hDialog));
    if (hDialog != nullptr && !s_pThis->m_bRun)
    {
        s_pThis->m_bRun = true;
        KillTimer(nullptr, uTimer);
        s_pThis->m_scenario(hDialog);
    }
}
