#pragma once

#include <winsock2.h>
#include <windows.h>

#include "Include/Handles.h"
#include "Include/LastError.h"

/// The clipboard, opened for one scope; test it before use. Closing it keeps the last error, and that of a
/// failed opening stays. Main thread.
class CClipboard
{
  public:
    explicit CClipboard(HWND hOwner) noexcept : m_bOpen(OpenClipboard(hOwner) != FALSE) {}
    ~CClipboard()
    {
        if (m_bOpen && !m_bLeftOpen)
        {
            const CKeepLastError keepLastError;
            CloseClipboard();
        }
    }
    CClipboard(const CClipboard&) = delete;
    CClipboard& operator=(const CClipboard&) = delete;

    explicit operator bool() const noexcept { return m_bOpen; }

    /// The clipboard is not closed at the scope's end: its owner can open it again, and nobody else can.
    void LeaveOpen() noexcept { m_bLeftOpen = true; }

  private:
    const bool m_bOpen;
    bool m_bLeftOpen = false;
};

/// Puts a block of memory on the clipboard, which owns it then. False, with the last error, when the
/// clipboard doesn't take it: the block is freed. The clipboard must be open and emptied, and the block
/// there. Main thread.
inline bool GiveToClipboard(UINT uFormat, CGlobalBlock hBlock) noexcept
{
    if (SetClipboardData(uFormat, hBlock.get()) == nullptr)
    {
        return false;
    }
    (void)hBlock.release(); // the clipboard owns it now
    return true;
}
