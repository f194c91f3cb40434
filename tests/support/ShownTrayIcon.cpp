#include "tests/support/ShownTrayIcon.h"

#include "Include/Handles.h"

#include <commctrl.h>

#include <cstddef>
#include <cstdlib>

namespace
{
constexpr size_t MAX_TIP = 512; // characters
constexpr int CHANNELS = 3;

/// A tool tip's description and its text, in the memory of the process that owns the tool tip.
struct TOOL_IMAGE
{
    TTTOOLINFOW info;
    wchar_t szText[MAX_TIP];
};

/// Memory of another process.
class RemoteTool
{
  public:
    explicit RemoteTool(HWND hToolTip)
        : m_hToolTip(hToolTip),
          m_hProcess(OpenProcess(PROCESS_VM_OPERATION | PROCESS_VM_READ | PROCESS_VM_WRITE, FALSE,
                                 ProcessOf(hToolTip))),
          m_pRemote(VirtualAllocEx(m_hProcess.get(), nullptr, sizeof(TOOL_IMAGE), MEM_COMMIT | MEM_RESERVE,
                                   PAGE_READWRITE))
    {
    }
    ~RemoteTool() { VirtualFreeEx(m_hProcess.get(), m_pRemote, 0, MEM_RELEASE); }
    RemoteTool(const RemoteTool&) = delete;
    RemoteTool& operator=(const RemoteTool&) = delete;

    /// False when there is no tool of that number.
    bool Read(int nTool, TOOL_IMAGE* pTool) const
    {
        *pTool = {};
        pTool->info.cbSize = sizeof(pTool->info);
        pTool->info.lpszText =
            reinterpret_cast<wchar_t*>(static_cast<BYTE*>(m_pRemote) + offsetof(TOOL_IMAGE, szText));
        return WriteProcessMemory(m_hProcess.get(), m_pRemote, pTool, sizeof(*pTool), nullptr) &&
               SendMessageW(m_hToolTip, TTM_ENUMTOOLSW, static_cast<WPARAM>(nTool),
                            reinterpret_cast<LPARAM>(m_pRemote)) != 0 &&
               ReadProcessMemory(m_hProcess.get(), m_pRemote, pTool, sizeof(*pTool), nullptr);
    }

  private:
    static DWORD ProcessOf(HWND hWnd)
    {
        DWORD dwProcessId = 0;
        GetWindowThreadProcessId(hWnd, &dwProcessId);
        return dwProcessId;
    }

    HWND m_hToolTip;
    CKernelHandle m_hProcess;
    void* m_pRemote;
};

struct ShellTool
{
    HWND hToolTip;
    TOOL_IMAGE image;
};

/// All tools of the shell's tool tips.
std::vector<ShellTool> ReadShellTools()
{
    DWORD dwShell = 0;
    GetWindowThreadProcessId(FindWindowW(L"Shell_TrayWnd", nullptr), &dwShell);
    std::vector<ShellTool> tools;
    for (HWND hToolTip = nullptr;
         (hToolTip = FindWindowExW(nullptr, hToolTip, TOOLTIPS_CLASSW, nullptr)) != nullptr;)
    {
        DWORD dwOwner = 0;
        GetWindowThreadProcessId(hToolTip, &dwOwner);
        if (dwOwner != dwShell)
        {
            continue;
        }
        const RemoteTool remote(hToolTip);
        ShellTool tool = {hToolTip, {}};
        for (int nTool = 0; remote.Read(nTool, &tool.image); ++nTool)
        {
            tool.image.szText[MAX_TIP - 1] = L'\0';
            tools.push_back(tool);
        }
    }
    return tools;
}

/// A picture in memory that can be drawn on and read.
class MemoryPicture
{
  public:
    MemoryPicture(int cx, int cy) : m_cx(cx), m_cy(cy), m_hDC(CreateCompatibleDC(nullptr))
    {
        BITMAPINFO info = {};
        info.bmiHeader = {sizeof(info.bmiHeader), cx, -cy, 1, 32, BI_RGB, 0, 0, 0, 0, 0};
        void* pvBits = nullptr;
        m_hBitmap.reset(CreateDIBSection(m_hDC, &info, DIB_RGB_COLORS, &pvBits, nullptr, 0));
        m_pBits = static_cast<BYTE*>(pvBits);
        m_hBefore = SelectObject(m_hDC, m_hBitmap.get());
    }
    ~MemoryPicture()
    {
        SelectObject(m_hDC, m_hBefore);
        DeleteDC(m_hDC);
    }
    MemoryPicture(const MemoryPicture&) = delete;
    MemoryPicture& operator=(const MemoryPicture&) = delete;

    HDC DeviceContext() const { return m_hDC; }
    double DistanceFrom(const MemoryPicture& other) const
    {
        GdiFlush();
        long nSum = 0;
        for (int nPixel = 0; nPixel < m_cx * m_cy; ++nPixel)
        {
            for (int nChannel = 0; nChannel < CHANNELS; ++nChannel)
            {
                const int nByte = nPixel * 4 + nChannel;
                nSum += std::abs(m_pBits[nByte] - other.m_pBits[nByte]);
            }
        }
        return static_cast<double>(nSum) / (255.0 * CHANNELS * m_cx * m_cy);
    }

  private:
    int m_cx;
    int m_cy;
    HDC m_hDC;
    CGdiObject m_hBitmap;
    HGDIOBJ m_hBefore = nullptr;
    BYTE* m_pBits = nullptr;
};
} // namespace

std::vector<ShownTrayIcon> ReadShownTrayIcons()
{
    std::vector<ShownTrayIcon> icons;
    for (const ShellTool& tool : ReadShellTools())
    {
        ShownTrayIcon icon = {tool.image.szText, tool.image.info.rect};
        // The tool tip of an icon that has gone is kept for the next, with no place of its own.
        if (!IsRectEmpty(&icon.place))
        {
            MapWindowPoints(tool.image.info.hwnd, nullptr, reinterpret_cast<POINT*>(&icon.place), 2);
            icons.push_back(std::move(icon));
        }
    }
    return icons;
}

std::vector<std::wstring> ReadShownBalloons()
{
    std::vector<std::wstring> balloons;
    for (const ShellTool& tool : ReadShellTools())
    {
        if ((GetWindowLongPtrW(tool.hToolTip, GWL_STYLE) & TTS_BALLOON) != 0 &&
            IsWindowVisible(tool.hToolTip))
        {
            balloons.emplace_back(tool.image.szText);
        }
    }
    return balloons;
}

double DistanceFromIcon(const ShownTrayIcon& shown, HICON hIcon)
{
    const int cx = GetSystemMetrics(SM_CXSMICON);
    const int cy = GetSystemMetrics(SM_CYSMICON);
    const int nLeft = (shown.place.left + shown.place.right - cx) / 2;
    const int nTop = (shown.place.top + shown.place.bottom - cy) / 2;
    const MemoryPicture screen(cx, cy);
    const HDC hScreen = GetDC(nullptr);
    BitBlt(screen.DeviceContext(), 0, 0, cx, cy, hScreen, nLeft, nTop, SRCCOPY);
    const COLORREF ground = GetPixel(hScreen, shown.place.left, shown.place.top);
    ReleaseDC(nullptr, hScreen);
    const MemoryPicture expected(cx, cy);
    const CGdiObject hGround(CreateSolidBrush(ground));
    DrawIconEx(expected.DeviceContext(), 0, 0, hIcon, cx, cy, 0, static_cast<HBRUSH>(hGround.get()),
               DI_NORMAL);
    return screen.DistanceFrom(expected);
}
