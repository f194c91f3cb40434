#include "modules/chat/ChatLayout.h"

#include "modules/common/ModuleDpi.h"

#include <algorithm>

namespace
{
// Lengths at 96 dots per inch.
constexpr int MARGIN = 11;
constexpr int GAP = 7;
constexpr int SMALLEST_BUTTON_WIDTH = 75;
constexpr int BUTTON_PADDING = 12; // on either side of its text
constexpr int BUTTON_EXTRA_HEIGHT = 8;

constexpr LONG HISTORY_LINES = 4; // at the least
constexpr LONG INPUT_LINES = 3;   // at the least
constexpr LONG INPUT_SHARE = 5;   // of a tall window the edit control gets one part in so many

// An edit control with that many lines; half a line more is what its border and its inside margin take.
LONG EditHeight(LONG nLines, const CHAT_METRICS& metrics)
{
    return nLines * metrics.nLineHeight + metrics.nLineHeight / 2;
}

// What stands between the edges of the client area besides history and edit control.
LONG FixedHeight(const CHAT_METRICS& metrics)
{
    return 2 * metrics.nMargin + 2 * metrics.nLineHeight + 3 * metrics.nGap;
}
} // namespace

CHAT_METRICS ScaleChatMetrics(UINT uDpi, LONG nLineHeight, LONG nLabelWidth, LONG nSendTextWidth)
{
    const LONG nButtonWidth = std::max<LONG>(ScaleForDpi(SMALLEST_BUTTON_WIDTH, uDpi),
                                             nSendTextWidth + 2 * ScaleForDpi(BUTTON_PADDING, uDpi));
    return {ScaleForDpi(MARGIN, uDpi),
            ScaleForDpi(GAP, uDpi),
            nLineHeight,
            nLabelWidth,
            {nButtonWidth, nLineHeight + ScaleForDpi(BUTTON_EXTRA_HEIGHT, uDpi)}};
}

SIZE SmallestChatClient(const CHAT_METRICS& metrics)
{
    const LONG nInputWidth = 2 * metrics.button.cx;
    return {2 * metrics.nMargin +
                std::max(metrics.nLabelWidth, nInputWidth + metrics.nGap + metrics.button.cx),
            FixedHeight(metrics) + EditHeight(HISTORY_LINES, metrics) + EditHeight(INPUT_LINES, metrics)};
}

CHAT_LAYOUT LayOutChat(SIZE client, const CHAT_METRICS& metrics)
{
    const SIZE smallest = SmallestChatClient(metrics);
    const LONG nLeft = metrics.nMargin;
    const LONG nRight = std::max(client.cx, smallest.cx) - metrics.nMargin;
    const LONG nBottom = std::max(client.cy, smallest.cy) - metrics.nMargin;
    const LONG nInputHeight = std::max(EditHeight(INPUT_LINES, metrics), nBottom / INPUT_SHARE);

    CHAT_LAYOUT layout = {};
    layout.people = {nLeft, metrics.nMargin, nRight, metrics.nMargin + metrics.nLineHeight};
    layout.send = {nRight - metrics.button.cx, nBottom - metrics.button.cy, nRight, nBottom};
    layout.input = {nLeft, nBottom - nInputHeight, layout.send.left - metrics.nGap, nBottom};
    const LONG nLabelBottom = layout.input.top - metrics.nGap / 2;
    layout.label = {nLeft, nLabelBottom - metrics.nLineHeight, nRight, nLabelBottom};
    layout.history = {nLeft, layout.people.bottom + metrics.nGap / 2, nRight,
                      layout.label.top - metrics.nGap};
    return layout;
}

RECT PlaceChatWindow(const RECT& workArea, SIZE window, LONG nGap)
{
    const LONG nRight = workArea.right - nGap;
    const LONG nBottom = workArea.bottom - nGap;
    return {std::max(workArea.left + nGap, nRight - window.cx),
            std::max(workArea.top + nGap, nBottom - window.cy), nRight, nBottom};
}
