#include "drop/DropTarget.h"

#include "drop/DroppedFiles.h"

#include <ole2.h>

namespace
{
constexpr LONG WHOLE_CONTENT = -1;

// Not the format that Drop reads. A source that answers "no" without an error lets its drag in, and those
// that offer files do; what only offers text is turned away.
FORMATETC FormatToAskFor()
{
    return {CF_TEXT, nullptr, DVASPECT_CONTENT, WHOLE_CONTENT, TYMED_FILE};
}

FORMATETC FormatToRead()
{
    return {CF_HDROP, nullptr, DVASPECT_CONTENT, WHOLE_CONTENT, TYMED_HGLOBAL};
}
} // namespace

CDropTarget::CDropTarget(HWND hWnd, const MSG_TRAYICON_SFT_DROP_CLIENT& client)
    : m_hWnd(hWnd), m_client(client)
{
    (void)OleInitialize(nullptr);
}

HRESULT STDMETHODCALLTYPE CDropTarget::QueryInterface(REFIID iid, void** ppvObject)
{
    if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IDropTarget))
    {
        *ppvObject = static_cast<IDropTarget*>(this);
        AddRef();
        return S_OK;
    }
    *ppvObject = nullptr;
    return E_NOINTERFACE;
}

ULONG STDMETHODCALLTYPE CDropTarget::AddRef()
{
    return ++m_dwReferences;
}

ULONG STDMETHODCALLTYPE CDropTarget::Release()
{
    const ULONG uLeft = m_dwReferences != 0 ? --m_dwReferences : 0;
    if (uLeft == 0 && m_bLetGo)
    {
        delete this;
    }
    return uLeft;
}

HRESULT STDMETHODCALLTYPE CDropTarget::DragEnter(IDataObject* pData, DWORD dwKeys, POINTL point,
                                                 DWORD* pdwEffect)
{
    FORMATETC format = FormatToAskFor();
    m_bAcceptable = SUCCEEDED(pData->QueryGetData(&format));
    return DragOver(dwKeys, point, pdwEffect);
}

HRESULT STDMETHODCALLTYPE CDropTarget::DragOver(DWORD, POINTL, DWORD* pdwEffect)
{
    *pdwEffect = static_cast<DWORD>(m_bAcceptable ? DROPEFFECT_COPY : DROPEFFECT_NONE);
    return S_OK;
}

HRESULT STDMETHODCALLTYPE CDropTarget::DragLeave()
{
    m_bAcceptable = false;
    return S_OK;
}

HRESULT STDMETHODCALLTYPE CDropTarget::Drop(IDataObject* pData, DWORD, POINTL, DWORD* pdwEffect)
{
    if (!m_bAcceptable)
    {
        return E_INVALIDARG;
    }
    *pdwEffect = DROPEFFECT_COPY;
    // While the source is asked, messages are handled: the window may go, and this object with it.
    const HWND hWnd = m_hWnd;
    const MSG_TRAYICON_SFT_DROP_CLIENT client = m_client;
    FORMATETC format = FormatToRead();
    STGMEDIUM medium = {};
    const HRESULT hResult = pData->GetData(&format, &medium);
    if (FAILED(hResult))
    {
        return hResult;
    }
    if (medium.tymed != TYMED_HGLOBAL)
    {
        return DV_E_TYMED; // what it holds is no list of files
    }
    // The medium is not released, as ever: there are sources that go on using the list they gave.
    HandOver(static_cast<HDROP>(medium.hGlobal), client, hWnd);
    return S_OK;
}

void CDropTarget::LetGo()
{
    m_bLetGo = true;
    if (m_dwReferences == 0)
    {
        delete this;
    }
}
