#pragma once

#include "tests/support/LoopbackPeer.h"
#include "tray/TKDASTWindow.h"

#include <functional>
#include <memory>
#include <optional>

constexpr DWORD BENCH_WAIT_MS = 30000;

/// The agent's window with its reader thread, in this process, connected to the listener.
class AgentWindow
{
  public:
    /// The icons come from hResources, which must outlive the object.
    AgentWindow(LoopbackListener& listener, HMODULE hResources);
    /// Whoever listens on the port accepts the agent, and has to close the connection before the end.
    AgentWindow(unsigned short nPort, HMODULE hResources);
    ~AgentWindow();
    AgentWindow(const AgentWindow&) = delete;
    AgentWindow& operator=(const AgentWindow&) = delete;

    bool IsConnected() const { return m_connection.has_value(); }
    LoopbackConnection& Connection() { return *m_connection; }

    /// Plays the service's side of the handshake. Takes the report of the desktop along that follows by
    /// itself.
    bool ShakeHands();

    /// What the shell takes for a change of the icon isn't the reader's.
    void HideIcon() { m_pWindow->m_Settings.dwTrayIcon = TRAY_ICON_HIDDEN; }

    CTaskBarWindow& Window() { return *m_pWindow; }

    /// The service goes, and the agent with it. What is left is the object, for threads that still use it.
    void End();

    /// Handles one message of this thread, waited for. False when it was the last.
    static bool DispatchNext();
    /// Runs the work on a thread of its own while this one handles messages.
    static void HandleMessagesWhile(const std::function<void()>& work);

  private:
    std::unique_ptr<CTaskBarWindow> m_pWindow;
    std::optional<LoopbackConnection> m_connection;
    bool m_bEnded = false;
};
