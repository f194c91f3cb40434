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

    /// The control, which has to be empty; its font tells nLineHeight.
    void Attach(HWND hEdit) { m_hEdit = hEdit; }
    void SetLineHeight(LONG nLineHeight) { m_nLineHeight = nLineHeight; }

    /// Adds a line at the end. What the person reads or has selected stays where it is, unless that is the
    /// end.
    void Append(const std::wstring& line);

    /// Whether the last line can be seen.
    bool IsAtEnd() const;
    void ScrollToEnd() const;

  private:
    struct VIEW;

    VIEW TakeView() const;
    void RestoreView(const VIEW& view) const;
    LONG DropOldest(VIEW& view);
    void Insert(const std::wstring& line);
    LRESULT Ask(UINT uMessage, WPARAM wParam = 0, LPARAM lParam = 0) const;
    LONG VisibleLines() const;

    HWND m_hEdit = nullptr;
    LONG m_nLineHeight = 1;
    size_t m_cchText = 0;
    std::deque<size_t> m_lines; // characters of each line, its end included
};
