#include "tests/unit/InvitationHarness.h"

#include "Include/BoundedText.h"
#include "dialogs/CreateInvitationDialog.h"
#include "resources/resource.h"
#include "startup/TKDAST.h"
#include "tests/unit/ModalScenario.h"

#include <algorithm>
#include <fstream>
#include <future>
#include <iterator>

#include <knownfolders.h>
#include <objbase.h>

InvitationHarness* InvitationHarness::s_pThis = nullptr;

InvitationHarness::InvitationHarness()
    : m_folder(std::filesystem::temp_directory_path() /
               (L"invitations " + std::to_wstring(GetCurrentProcessId())))
{
}

InvitationHarness::~InvitationHarness() = default;

void InvitationHarness::SetUp()
{
    DialogHarness::SetUp();
    s_pThis = this;
    std::filesystem::remove_all(m_folder);
    std::filesystem::create_directory(m_folder);
    m_binding.Set("SHGetKnownFolderPath", &AnswerDocuments);
    MSG_TRAYICON_SETTINGS& settings = Window().m_Settings;
    settings.bInviteOption1010 = settings.bInviteOption1015 = 1;
    settings.bInviteOption1016 = settings.bInviteOption1017 = 1;
    m_service.AddSink([this](const SERVICE_EVENT& event) {
        if (event.kind == SERVICE_EVENT_KIND::QueryReceived)
        {
            const std::lock_guard lock(m_requestLock);
            m_requests.emplace_back(event.bytes.begin(), event.bytes.end());
        }
    });
    ASSERT_TRUE(m_service.OpenQueryPort(QUERY_PORT, LOOKUP_MODE::Silent, std::nullopt)) << GetLastError();
}

void InvitationHarness::TearDown()
{
    m_service.CloseQueryPort();
    std::filesystem::remove_all(m_folder);
    DialogHarness::TearDown();
    s_pThis = nullptr;
}

INT_PTR InvitationHarness::RunDialog(const std::function<void(HWND)>& scenario)
{
    const ModalScenario modal([&](HWND hDlg) {
        scenario(hDlg);
        PostMessageW(hDlg, WM_CLOSE, 0, 0);
    });
    const INT_PTR nResult =
        DialogBoxParamW(g_hResourceModule, MAKEINTRESOURCEW(IDD_CREATE_INVITATION), Window().m_hWnd,
                        CreateInvitationWndProc, reinterpret_cast<LPARAM>(&Window()));
    EXPECT_TRUE(modal.HasRun());
    PumpMessages();
    return nResult;
}

void InvitationHarness::Click(HWND hDlg, int nControl)
{
    SendDlgItemMessageW(hDlg, nControl, BM_CLICK, 0, 0);
}

void InvitationHarness::Type(HWND hDlg, int nControl, const std::wstring& text)
{
    SetDlgItemTextW(hDlg, nControl, text.c_str());
}

void InvitationHarness::FillIn(HWND hDlg)
{
    Type(hDlg, IDC_INVITE_NAME, L"Ann");
    CheckDlgButton(hDlg, IDC_INVITE_VIEW, BST_CHECKED);
}

bool InvitationHarness::IsEnabled(HWND hDlg, int nControl)
{
    return IsWindowEnabled(GetDlgItem(hDlg, nControl)) != FALSE;
}

bool InvitationHarness::IsChecked(HWND hDlg, int nControl)
{
    return IsDlgButtonChecked(hDlg, nControl) == BST_CHECKED;
}

bool InvitationHarness::AreOutputsEnabled(HWND hDlg)
{
    const bool bText = IsEnabled(hDlg, IDC_INVITE_TEXT);
    for (const int nControl : {IDC_INVITE_COPY_TEXT, IDC_INVITE_COPY_FILE, IDC_INVITE_SAVE})
    {
        EXPECT_EQ(IsEnabled(hDlg, nControl), bText) << nControl;
    }
    return bText;
}

void InvitationHarness::MakeInvitations(const std::string& text)
{
    INVITATION_ANSWER answer;
    answer.mode = ANSWER_MODE::Answer;
    answer.text.assign(text.begin(), text.end());
    AnswerInvitations(answer);
}

std::vector<std::vector<BYTE>> InvitationHarness::Requests(size_t cbRequest) const
{
    const std::lock_guard lock(m_requestLock);
    std::vector<std::vector<BYTE>> requests;
    std::copy_if(m_requests.begin(), m_requests.end(), std::back_inserter(requests),
                 [cbRequest](const std::vector<BYTE>& request) { return request.size() == cbRequest; });
    return requests;
}

std::vector<std::wstring> InvitationHarness::Documents() const
{
    std::vector<std::wstring> names;
    for (const auto& entry : std::filesystem::directory_iterator(m_folder))
    {
        names.push_back(entry.path().filename().wstring());
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::vector<BYTE> InvitationHarness::FileBytes(const std::filesystem::path& path)
{
    std::ifstream stream(path, std::ios::binary);
    EXPECT_TRUE(stream) << path;
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

int WINAPI InvitationHarness::PlayBox(HWND hWnd, LPCWSTR pszText, LPCWSTR pszTitle, UINT uType)
{
    s_pThis->m_boxes.push_back({hWnd, pszText, pszTitle, uType});
    if (s_pThis->m_whileBoxIsOpen)
    {
        std::exchange(s_pThis->m_whileBoxIsOpen, nullptr)();
    }
    return s_pThis->m_nBoxAnswer;
}

HRESULT WINAPI InvitationHarness::AnswerDocuments(REFGUID folder, DWORD dwFlags, HANDLE, PWSTR* ppszPath)
{
    EXPECT_TRUE(IsEqualGUID(folder, FOLDERID_Documents));
    EXPECT_EQ(dwFlags, 32768U) << "made if it is missing";
    const std::wstring path = std::filesystem::path(s_pThis->m_folder).make_preferred().wstring();
    *ppszPath = static_cast<PWSTR>(CoTaskMemAlloc((path.size() + 1) * sizeof(wchar_t)));
    CopyText(*ppszPath, path.size() + 1, path);
    return S_OK;
}

ClipboardHolder::ClipboardHolder()
{
    std::promise<bool> opened;
    m_thread = std::thread([this, &opened] {
        const CWindow hWnd(CreateWindowExW(0, L"STATIC", L"another program", WS_POPUP, 0, 0, 0, 0, nullptr,
                                           nullptr, nullptr, nullptr));
        const bool bOpen = OpenClipboard(hWnd.get()) != FALSE;
        opened.set_value(bOpen);
        WaitForSingleObject(m_hEnd.get(), INFINITE);
        if (bOpen)
        {
            CloseClipboard();
        }
    });
    m_bHolds = opened.get_future().get();
}

ClipboardHolder::~ClipboardHolder()
{
    SetEvent(m_hEnd.get());
    m_thread.join();
}
