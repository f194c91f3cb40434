#pragma once

#include <winsock2.h>
#include <windows.h>

#include <functional>

/// Runs something in the message loop of the next modal dialog of this thread, as soon as the dialog is on
/// the screen; it gets the dialog's window. One at a time; the object outlives the dialog.
class ModalScenario
{
  public:
    explicit ModalScenario(std::function<void(HWND)> scenario);
    ~ModalScenario();
    ModalScenario(const ModalScenario&) = delete;
    ModalScenario& operator=(const ModalScenario&) = delete;

    bool HasRun() const { return m_bRun; }

  private:
    static ModalScenario* s_pThis;
    static void CALLBACK LookForDialog(HWND hWnd, UINT uMessage, UINT_PTR uTimer, DWORD dwTime);

    std::function<void(HWND)> m_scenario;
    UINT_PTR m_uTimer;
    bool m_bRun = false;
};
