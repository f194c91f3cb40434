#pragma once

#include <winsock2.h>
#include <windows.h>

#include <cstddef>
#include <deque>
#include <string>

/// What was said, in a read-only edit control: text that can be selected, copied, read aloud and written in
/// either direction. Main thread.
class CChatHistory
{
  public:
    /// More than this is never kept, in characters; the oldest quarter goes at once, so that a line is not
    /// dropped for every new one.
    static constexpr size_t MAX_HISTORY = 1U << 20;

    /// To the control, which has to be empty and stays the caller's.
    void Attach(HWND hEdit) { m_hEdit = hEdit; }

    /// The height of a line in the control's font, in pixels.
    void SetLineHeight(LONG nLineHeight) { m_nLineHeight = nLineHeight; }

    /// Adds a line at the end. What the person reads or has selected stays where it is, unless that is the
    /// end. An edit control takes the longer for a line the more it holds, so in a flood of them the lines of
    /// each FLUSH_PERIOD go in together.
    void Append(const std::wstring& line);

    /// To be asked before the control handles a message: shows the lines that wait where the message needs
    /// them. True when that was all the message was for.
    bool OnMessage(UINT uMessage, WPARAM wParam);

    /// Whether the last line that is shown can be seen.
    bool IsAtEnd() const;

    /// Shows all lines, those that wait too, and of them the last.
    void ScrollToEnd();

  private:
    struct VIEW;

    static constexpr ULONGLONG FLUSH_PERIOD = 50;   // milliseconds
    static constexpr size_t MAX_WAITING = 1U << 16; // characters
    static constexpr UINT_PTR TIMER_FLUSH = 1;

    void Flush();
    VIEW TakeView() const;
    void RestoreView(const VIEW& view) const;
    void ShowEnd() const;
    LONG DropOldest(VIEW& view);
    void Insert(const std::wstring& text);
    LRESULT Ask(UINT uMessage, WPARAM wParam = 0, LPARAM lParam = 0) const;
    LONG VisibleLines() const;

    HWND m_hEdit = nullptr;
    LONG m_nLineHeight = 1;
    size_t m_cchText = 0;
    std::deque<size_t> m_lines; // characters of each line, its end included; also of those that wait
    std::wstring m_waiting;     // is not in the control yet
    ULONGLONG m_ullFlushed = 0; // when lines were last shown
};
