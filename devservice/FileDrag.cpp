#include "devservice/FileDrag.h"

#include "Include/Handles.h"

#include <ole2.h>
#include <shlobj.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <mutex>
#include <thread>
#include <utility>

namespace
{
constexpr int SOURCE_SIZE = 16;      // pixels of the window on which the button goes down
constexpr int MOVES = 8;             // steps to the target
constexpr DWORD MOVE_MS = 20;        // for each of them
constexpr DWORD TAKE_HOLD_MS = 2000; // how long the button's message may take
constexpr int TAKE_HOLD_TRIES = 5;
constexpr DWORD LOOK_MS = 20;
constexpr DWORD TAKE_IN_MS = 10000;    // how long the target gets to take the drag in
constexpr DWORD WHOLE_DRAG_MS = 40000; // then it is called off
constexpr LONG WHOLE_CONTENT = -1;

bool IsFileFormat(const FORMATETC& format)
{
    return format.cfFormat == CF_HDROP && (format.tymed & TYMED_HGLOBAL) != 0;
}

/// What is dragged, and the hand that drags. Answers like the shell's own: a format that it hasn't got is
/// "no", and not an error.
class CDraggedFiles final : public IDataObject, public IDropSource
{
  public:
    explicit CDraggedFiles(std::vector<std::wstring> paths) : m_paths(std::move(paths)) {}
    virtual ~CDraggedFiles() = default;
    CDraggedFiles(const CDraggedFiles&) = delete;
    CDraggedFiles& operator=(const CDraggedFiles&) = delete;

    /// True as soon as a target has said that it would take the files.
    bool WaitUntilTakenIn(DWORD dwMilliseconds) const
    {
        return WaitForSingleObject(m_hTakenIn.get(), dwMilliseconds) == WAIT_OBJECT_0;
    }

    /// The hand lets the button go. What a thread sees of the button can come late, or not at all.
    void LetGo() { m_bHeld = false; }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** ppvObject) override
    {
        *ppvObject = nullptr;
        if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IDataObject))
        {
            *ppvObject = static_cast<IDataObject*>(this);
        }
        else if (IsEqualIID(iid, IID_IDropSource))
        {
            *ppvObject = static_cast<IDropSource*>(this);
        }
        else
        {
            return E_NOINTERFACE;
        }
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++m_uReferences; }
    ULONG STDMETHODCALLTYPE Release() override
    {
        const ULONG uLeft = --m_uReferences;
        if (uLeft == 0)
        {
            delete this;
        }
        return uLeft;
    }

    HRESULT STDMETHODCALLTYPE GetData(FORMATETC* pFormat, STGMEDIUM* pMedium) override
    {
        if (!IsFileFormat(*pFormat))
        {
            return DV_E_FORMATETC;
        }
        *pMedium = {};
        pMedium->tymed = TYMED_HGLOBAL;
        pMedium->hGlobal = MakeFileList(m_paths);
        return pMedium->hGlobal != nullptr ? S_OK : E_OUTOFMEMORY;
    }
    HRESULT STDMETHODCALLTYPE GetDataHere(FORMATETC*, STGMEDIUM*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE QueryGetData(FORMATETC* pFormat) override
    {
        return IsFileFormat(*pFormat) ? S_OK : S_FALSE;
    }
    HRESULT STDMETHODCALLTYPE GetCanonicalFormatEtc(FORMATETC*, FORMATETC* pFormat) override
    {
        pFormat->ptd = nullptr;
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE SetData(FORMATETC*, STGMEDIUM*, BOOL) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE EnumFormatEtc(DWORD dwDirection, IEnumFORMATETC** ppFormats) override
    {
        const FORMATETC format = {CF_HDROP, nullptr, DVASPECT_CONTENT, WHOLE_CONTENT, TYMED_HGLOBAL};
        return dwDirection == DATADIR_GET ? SHCreateStdEnumFmtEtc(1, &format, ppFormats) : E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE DAdvise(FORMATETC*, DWORD, IAdviseSink*, DWORD*) override
    {
        return OLE_E_ADVISENOTSUPPORTED;
    }
    HRESULT STDMETHODCALLTYPE DUnadvise(DWORD) override { return OLE_E_ADVISENOTSUPPORTED; }
    HRESULT STDMETHODCALLTYPE EnumDAdvise(IEnumSTATDATA**) override { return OLE_E_ADVISENOTSUPPORTED; }

    HRESULT STDMETHODCALLTYPE QueryContinueDrag(BOOL bEscape, DWORD) override
    {
        if (bEscape || GetTickCount64() > m_qwDeadline)
        {
            return DRAGDROP_S_CANCEL;
        }
        return m_bHeld ? S_OK : DRAGDROP_S_DROP;
    }
    HRESULT STDMETHODCALLTYPE GiveFeedback(DWORD dwEffect) override
    {
        if (dwEffect != DROPEFFECT_NONE)
        {
            SetEvent(m_hTakenIn.get());
        }
        return DRAGDROP_S_USEDEFAULTCURSORS;
    }

  private:
    std::atomic<ULONG> m_uReferences = 1;
    const std::vector<std::wstring> m_paths;
    const ULONGLONG m_qwDeadline = GetTickCount64() + WHOLE_DRAG_MS;
    const CKernelHandle m_hTakenIn{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    std::atomic<bool> m_bHeld = true;
};

void PressButton(DWORD dwFlag)
{
    INPUT input = {};
    input.type = INPUT_MOUSE;
    input.mi.dwFlags = dwFlag;
    SendInput(1, &input, sizeof(input));
}

POINT MiddleOf(HWND hWnd)
{
    RECT rect = {};
    GetWindowRect(hWnd, &rect);
    return {(rect.left + rect.right) / 2, (rect.top + rect.bottom) / 2};
}

// True when the message has come for the window.
bool TakeMessage(HWND hWnd, UINT uMessage)
{
    bool bCame = false;
    MSG message = {};
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE))
    {
        bCame = bCame || (message.message == uMessage && message.hwnd == hWnd);
        DispatchMessageW(&message);
    }
    return bCame;
}

bool AwaitButtonDown(HWND hSource)
{
    const ULONGLONG qwDeadline = GetTickCount64() + TAKE_HOLD_MS;
    while (!TakeMessage(hSource, WM_LBUTTONDOWN))
    {
        if (GetTickCount64() > qwDeadline)
        {
            return false;
        }
        MsgWaitForMultipleObjects(0, nullptr, FALSE, LOOK_MS, QS_ALLINPUT);
    }
    return true;
}

// The button is down on the source, and it knows. On a busy desktop the first press may go to whatever lay
// under the pointer before.
bool TakeHold(HWND hSource)
{
    const POINT start = MiddleOf(hSource);
    for (int nTry = 0; nTry < TAKE_HOLD_TRIES; ++nTry)
    {
        SetCursorPos(start.x, start.y);
        PressButton(MOUSEEVENTF_LEFTDOWN);
        if (AwaitButtonDown(hSource))
        {
            return true;
        }
        PressButton(MOUSEEVENTF_LEFTUP);
    }
    return false;
}

// While the drag runs, on another thread: a hand moves, holds still, and lets go.
void MoveAndLetGo(POINT to, CDraggedFiles& files)
{
    POINT from = {};
    GetCursorPos(&from);
    for (int nMove = 1; nMove <= MOVES; ++nMove)
    {
        SetCursorPos(from.x + (to.x - from.x) * nMove / MOVES, from.y + (to.y - from.y) * nMove / MOVES);
        files.WaitUntilTakenIn(MOVE_MS);
    }
    files.WaitUntilTakenIn(TAKE_IN_MS);
    files.LetGo();
    PressButton(MOUSEEVENTF_LEFTUP);
}

bool DragFrom(HWND hSource, const std::vector<std::wstring>& paths, HWND hTarget)
{
    if (!TakeHold(hSource))
    {
        return false;
    }
    CDraggedFiles* const pFiles = new CDraggedFiles(paths);
    std::thread hand([to = MiddleOf(hTarget), pFiles] { MoveAndLetGo(to, *pFiles); });
    DWORD dwEffect = DROPEFFECT_NONE;
    const HRESULT hResult = DoDragDrop(pFiles, pFiles, DROPEFFECT_COPY, &dwEffect);
    hand.join();
    pFiles->Release();
    return hResult == DRAGDROP_S_DROP && dwEffect == DROPEFFECT_COPY;
}

bool DragFromNewWindow(const std::vector<std::wstring>& paths, HWND hTarget)
{
    const CWindow hSource(CreateWindowExW(WS_EX_TOPMOST | WS_EX_TOOLWINDOW | WS_EX_NOACTIVATE, L"STATIC", L"",
                                          WS_POPUP | WS_VISIBLE | SS_NOTIFY, 0, 0, SOURCE_SIZE, SOURCE_SIZE,
                                          nullptr, nullptr, nullptr, nullptr));
    return hSource && DragFrom(hSource.get(), paths, hTarget);
}

/// Drags on a thread of its own, as OLE needs one for itself. It is the same for all drags: each new one
/// would listen at a place of its own for calls from other programs, to the end of this one, and the test
/// system can't listen at more than some sixty.
class CDragger
{
  public:
    CDragger() : m_thread([this] { Run(); }) {}
    ~CDragger()
    {
        m_bEnd = true;
        SetEvent(m_hWork.get());
        m_thread.join();
    }
    CDragger(const CDragger&) = delete;
    CDragger& operator=(const CDragger&) = delete;

    bool Drag(const std::vector<std::wstring>& paths, HWND hTarget)
    {
        const std::lock_guard lock(m_oneAtATime);
        m_pPaths = &paths;
        m_hTarget = hTarget;
        SetEvent(m_hWork.get());
        WaitForSingleObject(m_hDone.get(), INFINITE);
        return m_bTaken;
    }

  private:
    void Run()
    {
        const bool bReady = SUCCEEDED(OleInitialize(nullptr));
        while (AwaitWork())
        {
            m_bTaken = bReady && DragFromNewWindow(*m_pPaths, m_hTarget);
            SetEvent(m_hDone.get());
        }
        if (bReady)
        {
            OleUninitialize();
        }
    }

    // Handles the thread's messages meanwhile: OLE has windows on it. False at the end.
    bool AwaitWork()
    {
        const HANDLE hWork = m_hWork.get();
        while (MsgWaitForMultipleObjects(1, &hWork, FALSE, INFINITE, QS_ALLINPUT) != WAIT_OBJECT_0)
        {
            TakeMessage(nullptr, WM_NULL);
        }
        return !m_bEnd;
    }

    std::mutex m_oneAtATime;
    const std::vector<std::wstring>* m_pPaths = nullptr;
    HWND m_hTarget = nullptr;
    bool m_bTaken = false;
    std::atomic<bool> m_bEnd = false;
    const CKernelHandle m_hWork{CreateEventW(nullptr, FALSE, FALSE, nullptr)};
    const CKernelHandle m_hDone{CreateEventW(nullptr, FALSE, FALSE, nullptr)};
    std::thread m_thread; // last, as it uses the others
};

CDragger& Dragger()
{
    static CDragger dragger;
    return dragger;
}
} // namespace

bool DragFilesOnto(const std::vector<std::wstring>& paths, HWND hTarget)
{
    return Dragger().Drag(paths, hTarget);
}

HGLOBAL MakeFileList(const std::vector<std::wstring>& paths)
{
    std::wstring list;
    for (const std::wstring& path : paths)
    {
        list += path + L'\0';
    }
    list += L'\0';
    DROPFILES head = {};
    head.pFiles = sizeof(head);
    head.fWide = TRUE;
    CGlobalBlock hList(GlobalAlloc(GMEM_MOVEABLE, sizeof(head) + list.size() * sizeof(wchar_t)));
    BYTE* const pList = hList ? static_cast<BYTE*>(GlobalLock(hList.get())) : nullptr;
    if (pList == nullptr)
    {
        return nullptr;
    }
    memcpy(pList, &head, sizeof(head));
    std::copy(list.begin(), list.end(), reinterpret_cast<wchar_t*>(pList + sizeof(head)));
    GlobalUnlock(hList.get());
    return hList.release();
}
