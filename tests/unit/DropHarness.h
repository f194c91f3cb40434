#pragma once

#include <winsock2.h>
#include <windows.h>
#include <objidl.h>
#include <shellapi.h>

#include "Include/Handles.h"
#include "channel/TrayMessages.h"
#include "tests/support/ProgramDataFolder.h"
#include "tests/unit/DialogHarness.h"

#include <functional>
#include <string>
#include <utility>
#include <vector>

/// A source of files whose answers the test sets. Lives on the test's stack; references are only counted.
class FakeFiles final : public IDataObject
{
  public:
    explicit FakeFiles(std::vector<std::wstring> paths) : m_paths(std::move(paths)) {}
    virtual ~FakeFiles();
    FakeFiles(const FakeFiles&) = delete;
    FakeFiles& operator=(const FakeFiles&) = delete;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** ppvObject) override;
    ULONG STDMETHODCALLTYPE AddRef() override { return ++m_uReferences; }
    ULONG STDMETHODCALLTYPE Release() override { return --m_uReferences; }
    HRESULT STDMETHODCALLTYPE GetData(FORMATETC* pFormat, STGMEDIUM* pMedium) override;
    HRESULT STDMETHODCALLTYPE GetDataHere(FORMATETC*, STGMEDIUM*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE QueryGetData(FORMATETC* pFormat) override;
    HRESULT STDMETHODCALLTYPE GetCanonicalFormatEtc(FORMATETC*, FORMATETC*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetData(FORMATETC*, STGMEDIUM*, BOOL) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE EnumFormatEtc(DWORD, IEnumFORMATETC**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE DAdvise(FORMATETC*, DWORD, IAdviseSink*, DWORD*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE DUnadvise(DWORD) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE EnumDAdvise(IEnumSTATDATA**) override { return E_NOTIMPL; }

    // What it answers, and what it was asked.
    HRESULT m_hQueryResult = S_FALSE;
    HRESULT m_hGetResult = S_OK;
    DWORD m_dwMedium = TYMED_HGLOBAL;
    std::function<void()> m_whileAsked; // runs in GetData
    FORMATETC m_queried = {};
    FORMATETC m_read = {};
    ULONG m_uReferences = 1;
    HGLOBAL m_hList = nullptr; // given out last

  private:
    const std::vector<std::wstring> m_paths;
};

/// A list of files as a drag carries it, for as long as the object lives.
class DropList
{
  public:
    explicit DropList(const std::vector<std::wstring>& paths);
    HDROP get() const { return static_cast<HDROP>(m_hList.get()); }

  private:
    CGlobalBlock m_hList;
};

/// The agent's window on the test's thread, a data folder and an event of the test's own.
class DropHarness : public DialogHarness
{
  protected:
    static constexpr wchar_t EVENT_NAME[] = L"TKDAST drop harness";
    using Names = std::vector<std::wstring>;

    void SetUp() override;

    static MSG_TRAYICON_SFT_DROP_CLIENT Client(DWORD dwClientId = 5, const wchar_t* pszName = L"Alice");

    /// What a service does: folder, file in UTF-16, event.
    void PrepareService();
    static void MakeFolder();
    void MakeEvent();

    /// Whether the event was set, which unsets it.
    bool WasTold() const;

    /// Opens the drop window as the service's message does.
    HWND OpenDrop(const MSG_TRAYICON_SFT_DROP_CLIENT& client = Client());

    /// A value of the data file, as the system reads it.
    static std::wstring FileValue(const wchar_t* pszSection, const wchar_t* pszKey);

    CKernelHandle m_hEvent;

  private:
    ProgramDataFolder m_programData;
};
