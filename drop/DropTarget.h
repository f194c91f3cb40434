#pragma once

#include <winsock2.h>
#include <windows.h>
#include <oleidl.h>

#include "channel/TrayMessages.h"

/// What a drop window offers to OLE: takes files and hands their names to the service. Made with new, given
/// to RegisterDragDrop, and let go by its window. Main thread; calls of OLE arrive there, too.
class CDropTarget final : public IDropTarget
{
  public:
    /// Keeps a copy of the record. OLE stays initialised on this thread: the process's end undoes it, as it
    /// does with COM.
    CDropTarget(HWND hWnd, const MSG_TRAYICON_SFT_DROP_CLIENT& client);
    CDropTarget(const CDropTarget&) = delete;
    CDropTarget& operator=(const CDropTarget&) = delete;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** ppvObject) override;
    ULONG STDMETHODCALLTYPE AddRef() override;
    ULONG STDMETHODCALLTYPE Release() override;
    HRESULT STDMETHODCALLTYPE DragEnter(IDataObject* pData, DWORD dwKeys, POINTL point,
                                        DWORD* pdwEffect) override;
    HRESULT STDMETHODCALLTYPE DragOver(DWORD dwKeys, POINTL point, DWORD* pdwEffect) override;
    HRESULT STDMETHODCALLTYPE DragLeave() override;

    /// Hands the names over. E_INVALIDARG when DragEnter has refused, else the code of the data object that
    /// didn't give its files, DV_E_TYMED when it gave something else, or S_OK.
    HRESULT STDMETHODCALLTYPE Drop(IDataObject* pData, DWORD dwKeys, POINTL point, DWORD* pdwEffect) override;

    virtual ~CDropTarget() = default;

    /// The window that is registered with OLE, and not owned.
    HWND GetWindow() const { return m_hWnd; }

    /// Deletes the object, whose references don't count for its window. But a call of OLE may be under way,
    /// in whose loop the window was closed: then the object goes with the last reference.
    void LetGo();

  private:
    DWORD m_dwReferences = 0; // those of others; the window's isn't one
    HWND m_hWnd;
    bool m_bAcceptable = false; // what DragEnter found
    MSG_TRAYICON_SFT_DROP_CLIENT m_client;
    bool m_bLetGo = false;
};
