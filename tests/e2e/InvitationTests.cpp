#include "tests/e2e/MenuTest.h"

#include "Include/BoundedText.h"
#include "devservice/Person.h"
#include "resources/resource.h"

#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

namespace
{
constexpr DWORD LOOK_MS = 20;
constexpr wchar_t INVITATION_TITLE[] = L"Create an invitation";
constexpr wchar_t SAVE_TITLE[] = L"Save Invitation As";
constexpr char INVITATION[] = "join me\r\nsoon";

bool WaitUntil(const std::function<bool()>& test)
{
    for (DWORD dwWaited = 0; dwWaited < PATIENCE_MS; dwWaited += LOOK_MS)
    {
        if (test())
        {
            return true;
        }
        Sleep(LOOK_MS);
    }
    return false;
}

// What an invitation's file holds, character for character.
std::wstring FileText(const std::filesystem::path& path)
{
    std::ifstream stream(path, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
    std::wstring text(bytes.size() / sizeof(wchar_t), L'\0');
    memcpy(text.data(), bytes.data(), text.size() * sizeof(wchar_t));
    return text;
}

class InvitationTest : public MenuTest
{
  protected:
    void SetUp() override
    {
        MenuTest::SetUp();
        ASSERT_TRUE(m_service.IsOpen());
        ChooseByKeys(L"I");
        ASSERT_TRUE(m_channel->TakeRecord(MSG_TYPE_TRAYICON_SETTINGS_REQUEST, PATIENCE_MS).has_value());
        MSG_TRAYICON_SETTINGS settings = MenuSettings(MSG_TYPE_TRAYICON_SETTINGS_UPDATE);
        settings.bInviteOption1015 = 1;
        ASSERT_TRUE(m_channel->Send(settings));
        ASSERT_TRUE(WaitForWindow(INVITATION_TITLE, true));
        m_hDlg = FindShownWindow(INVITATION_TITLE);
    }

    void TearDown() override
    {
        for (const std::filesystem::path& file : m_files)
        {
            std::filesystem::remove(file);
        }
    }

    void Click(int nControl) const { PostMessageW(GetDlgItem(m_hDlg, nControl), BM_CLICK, 0, 0); }

    /// The next datagram at the query port.
    std::vector<BYTE> TakeDatagram() { return m_service.Receive(PATIENCE_MS).value_or(std::vector<BYTE>()); }

    template <typename Record>
    Record TakeRequest()
    {
        return RecordAs<Record>(TakeDatagram());
    }

    void Create()
    {
        SetDlgItemTextW(m_hDlg, IDC_INVITE_NAME, m_name.c_str());
        SendDlgItemMessageW(m_hDlg, IDC_INVITE_VIEW, BM_CLICK, 0, 0);
        Click(IDC_INVITE_CREATE);
        EXPECT_EQ(TakeRequest<MSG_UDP_HEADER>().dwRequest, static_cast<DWORD>(UDP_REQUEST_CREATE_INVITATION));
        const auto request = TakeRequest<MSG_UDP_CREATE_INVITATION>();
        EXPECT_EQ(FixedText(request.szInvitationName), m_name);
        EXPECT_EQ(request.bOption1015, 1U);
        MSG_UDP_CREATE_INVITATION answer = {};
        answer.dwRequest = UDP_REQUEST_CREATE_INVITATION;
        answer.dwInvitationLength = sizeof(INVITATION) - 1;
        ASSERT_TRUE(m_service.Reply(&answer, sizeof(answer)));
        ASSERT_TRUE(m_service.Reply(INVITATION, sizeof(INVITATION) - 1));
        ASSERT_TRUE(
            WaitUntil([this] { return IsWindowEnabled(GetDlgItem(m_hDlg, IDC_INVITE_SAVE)) != FALSE; }));
    }

    LoopbackResponder m_service{static_cast<unsigned short>(QUERY_PORT)};
    HWND m_hDlg = nullptr;
    const std::wstring m_name = L"e2e " + std::to_wstring(GetCurrentProcessId());
    std::vector<std::filesystem::path> m_files; // to be removed
};

TEST_F(InvitationTest, AnInvitationIsMadeCopiedSavedAndDeleted)
{
    ASSERT_NO_FATAL_FAILURE(Create());

    Click(IDC_INVITE_COPY_TEXT);
    EXPECT_TRUE(WaitUntil([] { return ClipboardText() == L"join me\r\nsoon"; }));

    Click(IDC_INVITE_COPY_FILE);
    ASSERT_TRUE(WaitUntil([] { return !ClipboardFile().empty(); }));
    const std::filesystem::path copied = ClipboardFile();
    m_files.push_back(copied);
    EXPECT_EQ(copied.filename(), m_name + L".inv");
    EXPECT_EQ(FileText(copied), L"join me\r\nsoon");

    const std::filesystem::path saved = copied.parent_path() / (m_name + L" saved.inv");
    m_files.push_back(saved);
    Click(IDC_INVITE_SAVE);
    ASSERT_TRUE(WaitForWindow(SAVE_TITLE, true));
    const HWND hSave = FindShownWindow(SAVE_TITLE);
    constexpr int FILE_NAME_BOX = 0x47C; // cmb13 of the system's dialog, which all its styles have
    SetDlgItemTextW(hSave, FILE_NAME_BOX, saved.c_str());
    PostMessageW(hSave, WM_COMMAND, IDOK, 0);
    ASSERT_TRUE(WaitForWindow(SAVE_TITLE, false));
    EXPECT_TRUE(WaitUntil([&saved] { return FileText(saved) == L"join me\r\nsoon"; }));

    Click(IDC_INVITE_DELETE_ALL);
    ASSERT_TRUE(WaitForWindow(QUESTION_TITLE, true));
    PostMessageW(FindShownWindow(QUESTION_TITLE), WM_COMMAND, IDYES, 0);
    EXPECT_EQ(TakeRequest<MSG_UDP_HEADER>().dwRequest, static_cast<DWORD>(UDP_REQUEST_DELETE_INVITATIONS));
    ASSERT_TRUE(WaitForWindow(QUESTION_TITLE, false));
    const MSG_UDP_DELETE_INVITATIONS deleted = {UDP_REQUEST_DELETE_INVITATIONS, 0, 1};
    ASSERT_TRUE(m_service.Reply(&deleted, sizeof(deleted)));
    ASSERT_TRUE(WaitForWindow(QUESTION_TITLE, true));
    PostMessageW(FindShownWindow(QUESTION_TITLE), WM_COMMAND, IDOK, 0);

    Click(IDCANCEL);
    ASSERT_TRUE(WaitForWindow(INVITATION_TITLE, false));
    ExpectEndWithService();
}

TEST_F(InvitationTest, ASecondChoiceOfTheCommandLeavesTheOneDialogOpen)
{
    ChooseByKeys(L"I");
    ExpectEcho();
    EXPECT_EQ(m_channel->CountOf(MSG_TYPE_TRAYICON_SETTINGS_REQUEST), 0U);
    EXPECT_EQ(FindShownWindow(INVITATION_TITLE), m_hDlg);
    ExpectEndWithService();
}
} // namespace
