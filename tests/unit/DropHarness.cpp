#include "tests/unit/DropHarness.h"

#include "Include/BoundedText.h"
#include "Include/Clipboard.h"
#include "devservice/DroppedNames.h"
#include "devservice/FileDrag.h"
#include "drop/DroppedFiles.h"

#include <filesystem>

FakeFiles::~FakeFiles()
{
    EXPECT_EQ(m_uReferences, 1U) << "somebody has kept, or let go, too much";
    GlobalFree(m_hList);
}

HRESULT STDMETHODCALLTYPE FakeFiles::QueryInterface(REFIID, void** ppvObject)
{
    *ppvObject = nullptr;
    return E_NOINTERFACE;
}

HRESULT STDMETHODCALLTYPE FakeFiles::GetData(FORMATETC* pFormat, STGMEDIUM* pMedium)
{
    m_read = *pFormat;
    if (m_whileAsked)
    {
        m_whileAsked();
    }
    if (FAILED(m_hGetResult))
    {
        return m_hGetResult;
    }
    GlobalFree(m_hList);
    m_hList = MakeFileList(m_paths);
    *pMedium = {};
    pMedium->tymed = m_dwMedium;
    pMedium->hGlobal = m_hList;
    return m_hGetResult;
}

HRESULT STDMETHODCALLTYPE FakeFiles::QueryGetData(FORMATETC* pFormat)
{
    m_queried = *pFormat;
    return m_hQueryResult;
}

DropList::DropList(const std::vector<std::wstring>& paths) : m_hList(MakeFileList(paths)) {}

void DropHarness::SetUp()
{
    DialogHarness::SetUp();
    const CClipboard clipboard(nullptr);
    ASSERT_TRUE(clipboard && EmptyClipboard());
}

MSG_TRAYICON_SFT_DROP_CLIENT DropHarness::Client(DWORD dwClientId, const wchar_t* pszName)
{
    MSG_TRAYICON_SFT_DROP_CLIENT client = {};
    client.dwType = MSG_TYPE_TRAYICON_SFT_DROP_CLIENT;
    client.dwClientId = dwClientId;
    CopyText(client.szClientName, pszName);
    CopyText(client.szDropEventName, EVENT_NAME);
    return client;
}

void DropHarness::PrepareService()
{
    ASSERT_TRUE(PrepareDropDataFile());
    MakeEvent();
}

void DropHarness::MakeFolder()
{
    std::filesystem::create_directories(std::filesystem::path(DropDataFile()).parent_path());
}

void DropHarness::MakeEvent()
{
    m_hEvent.reset(CreateEventW(nullptr, FALSE, FALSE, EVENT_NAME));
    ASSERT_TRUE(m_hEvent);
}

bool DropHarness::WasTold() const
{
    return WaitForSingleObject(m_hEvent.get(), 0) == WAIT_OBJECT_0;
}

HWND DropHarness::OpenDrop(const MSG_TRAYICON_SFT_DROP_CLIENT& client)
{
    Window().SFT_AddDropWindow(client);
    PumpMessages();
    return Window().m_DropWindows.empty()
               ? nullptr
               : reinterpret_cast<HWND>(static_cast<ULONG_PTR>(Window().m_DropWindows.back()->ullWindowSlot));
}

std::wstring DropHarness::FileValue(const wchar_t* pszSection, const wchar_t* pszKey)
{
    std::wstring value(MAX_DROPPED_TEXT + 1, L'\0');
    value.resize(GetPrivateProfileStringW(pszSection, pszKey, L"(none)", value.data(),
                                          static_cast<DWORD>(value.size()), DropDataFile().c_str()));
    return value;
}
