#pragma once

#include "devservice/StandInService.h"
#include "tests/support/ImportHook.h"
#include "tests/unit/DialogHarness.h"
#include "tests/unit/RegistrySandbox.h"

#include <filesystem>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

/// A message box that was asked for.
struct INVITATION_BOX
{
    HWND hWndOwner;
    std::wstring text;
    std::wstring title;
    UINT uType;
};

/// The invitation dialog, with a service at the query port that doesn't answer until it is told to, a
/// registry of its own, an empty folder for the user's documents, and message boxes that are answered at
/// once. The settings allow everything.
class InvitationHarness : public DialogHarness
{
  protected:
    InvitationHarness();
    ~InvitationHarness() override;

    void SetUp() override;
    void TearDown() override;

    /// Runs the scenario in the dialog, which it may close itself, and returns what the dialog ended with.
    INT_PTR RunDialog(const std::function<void(HWND)>& scenario);

    /// What a person does.
    static void Click(HWND hDlg, int nControl);
    static void Type(HWND hDlg, int nControl, const std::wstring& text);
    /// A name and one thing that is allowed: enough for an invitation.
    static void FillIn(HWND hDlg);
    static bool IsEnabled(HWND hDlg, int nControl);
    static bool IsChecked(HWND hDlg, int nControl);
    static bool AreOutputsEnabled(HWND hDlg);

    /// The service makes this text.
    void MakeInvitations(const std::string& text);
    void AnswerInvitations(INVITATION_ANSWER answer) { m_service.SetInvitationAnswer(std::move(answer)); }

    /// The datagrams of that size which the service got.
    std::vector<std::vector<BYTE>> Requests(size_t cbRequest) const;

    /// Files in the documents folder, by name.
    std::vector<std::wstring> Documents() const;
    static std::vector<BYTE> FileBytes(const std::filesystem::path& path);

    const std::filesystem::path m_folder;
    std::vector<INVITATION_BOX> m_boxes;
    int m_nBoxAnswer = IDYES;
    std::function<void()> m_whileBoxIsOpen;

  private:
    static InvitationHarness* s_pThis;
    static int WINAPI PlayBox(HWND hWnd, LPCWSTR pszText, LPCWSTR pszTitle, UINT uType);
    static HRESULT WINAPI AnswerDocuments(REFGUID folder, DWORD dwFlags, HANDLE hToken, PWSTR* ppszPath);

    mutable std::mutex m_requestLock;
    std::vector<std::vector<BYTE>> m_requests;

  protected:
    CStandInService m_service; // whose thread fills what stands above

  private:
    RegistrySandbox m_registry{HKEY_CURRENT_USER};
    ImportHook<decltype(MessageBoxW)> m_box{"user32.dll", "MessageBoxW", &PlayBox};
};

/// Another program that has the clipboard open: a thread of its own with a window.
class ClipboardHolder
{
  public:
    ClipboardHolder();
    ~ClipboardHolder();
    ClipboardHolder(const ClipboardHolder&) = delete;
    ClipboardHolder& operator=(const ClipboardHolder&) = delete;

    /// False when the clipboard was open already.
    bool Holds() const { return m_bHolds; }

  private:
    CKernelHandle m_hEnd{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    bool m_bHolds = false;
    std::thread m_thread;
};
