#pragma once

#include "Include/Handles.h"
#include "devservice/LaidCertificates.h"
#include "devservice/PlayedSession.h"
#include "devservice/Programs.h"
#include "devservice/Script.h"
#include "devservice/SessionKeeper.h"
#include "devservice/StandInService.h"

#include <functional>
#include <initializer_list>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

enum class SCRIPT_RESULT
{
    Done,
    Quit,   // the script said quit; GetExitCode has its code
    Failed, // GetError says where and why
};

struct SCRIPT_SETTINGS
{
    unsigned short nPort = static_cast<unsigned short>(DEFAULT_SERVICE_PORT); // of listen without a port
    unsigned short nQueryPort = static_cast<unsigned short>(QUERY_PORT);
    std::wstring programFolder; // $dir
    std::wstring marksFolder;   // where mark waits for NAME.done; empty: it doesn't wait
};

/// Carries out the statements of a script on a service. One thread.
class CScriptRunner
{
  public:
    CScriptRunner(CStandInService& service, SCRIPT_SETTINGS settings)
        : m_service(service), m_settings(std::move(settings)), m_keeper(service)
    {
    }

    /// Looks for commands that don't exist and for too few or too many words, before anything runs. False
    /// leaves the reason in error. Any thread.
    static bool Check(std::span<const SCRIPT_STATEMENT> statements, std::wstring& error);

    /// Carries out one statement after the other, until one fails or the script quits.
    SCRIPT_RESULT Run(std::span<const SCRIPT_STATEMENT> statements);

    /// What Run's result says to ask for.
    int GetExitCode() const { return m_nExitCode; }
    const std::wstring& GetError() const { return m_error; }

    /// Ends the programs that the script has left running.
    void EndPrograms();

  private:
    friend struct SCRIPT_COMMANDS;
    using WORDS = std::span<const SCRIPT_WORD>;
    struct EXPECTATION;
    struct EXPECTED_ANSWER;
    struct QUESTION;

    // The window of which an agent was last told, until something has been dropped on it.
    struct DROP_WINDOW
    {
        std::wstring viewer;
        std::wstring eventName;
        CKernelHandle hEvent = CKernelHandle(); // set by the agent when the names are ready
        DWORD dwClientId = 0;
    };

    bool RunStatement(const SCRIPT_STATEMENT& statement);
    bool Expand(std::span<const SCRIPT_WORD> words, std::vector<SCRIPT_WORD>& expanded);
    std::optional<std::wstring> Variable(std::wstring_view name) const;
    bool ExpandText(std::wstring_view text, std::wstring& expanded);
    bool Fail(std::wstring_view reason);

    // The commands. The words are those behind the command, with their variables filled in.
    bool Addresses(WORDS words);
    bool Agent(WORDS words);
    bool Agents(WORDS words);
    bool Answers(WORDS words);
    bool Certificate(WORDS words);
    bool Chat(WORDS words);
    bool ChatClose(WORDS words);
    bool ChatOpen(WORDS words);
    bool Clipboard(WORDS words);
    bool Close(WORDS words);
    bool Connect(WORDS words);
    bool Count(WORDS words);
    bool Deletions(WORDS words);
    bool Disconnect(WORDS words);
    bool Drop(WORDS words);
    bool DropFiles(WORDS words);
    bool Echo(WORDS words);
    bool Effects(WORDS words);
    bool Enter(WORDS words);
    bool Exit(WORDS words);
    bool Expect(WORDS words);
    bool ExpectExit(WORDS words);
    bool File(WORDS words);
    bool Forget(WORDS words);
    bool Handshake(WORDS words);
    bool Help(WORDS words);
    bool Invitations(WORDS words);
    bool Keys(WORDS words);
    bool List(WORDS words);
    bool Listen(WORDS words);
    bool LockState(WORDS words);
    bool Lookup(WORDS words);
    bool Mark(WORDS words);
    bool Marker(WORDS words);
    bool Menu(WORDS words);
    bool Permission(WORDS words);
    bool PlayedSession(WORDS words);
    bool Press(WORDS words);
    bool Quit(WORDS words);
    bool Raw(WORDS words);
    bool Reconfigure(WORDS words);
    bool Reverse(WORDS words);
    bool RunProgram(WORDS words);
    bool Say(WORDS words);
    bool Send(WORDS words);
    bool Settings(WORDS words);
    bool StartProgram(WORDS words);
    bool Timer(WORDS words);
    bool Wait(WORDS words);
    bool Wallpaper(WORDS words);
    bool Window(WORDS words);

    bool RunBlock(const SCRIPT_STATEMENT& statement);
    bool AgentWait(WORDS words);
    bool Targets(std::vector<unsigned int>& agents);
    bool ForEachTarget(const std::function<bool(unsigned int uAgent)>& step);
    bool SendToTargets(std::span<const BYTE> bytes);
    RECORD_EDIT FieldEdit(DWORD dwType, WORDS words);
    bool ReadSwitch(WORDS words, size_t nIndex, bool& bOn);
    bool BuildRecord(WORDS words, std::vector<BYTE>& record);
    bool SetField(const MESSAGE_DESCRIPTION& message, const SCRIPT_WORD& word, std::vector<BYTE>& record);
    bool ReadExpectation(WORDS words, EXPECTATION& expectation);
    bool CheckFields(const EXPECTATION& expectation);
    bool ExpectRecord(unsigned int uAgent, const EXPECTATION& expectation);
    bool ExpectNothing(unsigned int uAgent, const EXPECTATION& expectation);
    bool ExpectClosed(unsigned int uAgent, const EXPECTATION& expectation);
    bool AwaitOutcome(WORDS words, std::wstring_view what, const std::wstring& wanted,
                      const std::function<std::wstring()>& read);
    bool PauseWhileWaiting(DWORD dwMilliseconds);
    bool ReadMilliseconds(WORDS words, DWORD& dwMilliseconds);
    bool ReadNumber(std::wstring_view text, DWORD& dwValue);
    bool ReadPort(std::wstring_view text, unsigned short& nPort);
    bool HasOnly(WORDS words, std::initializer_list<std::wstring_view> names);
    bool ReadOption(WORDS words, std::wstring_view name, std::optional<DWORD>& value);
    bool ReadQuietMode(WORDS words, ANSWER_MODE& mode);
    bool ReadInvitation(WORDS words, INVITATION_ANSWER& answer);
    bool ReadRefusal(WORDS words, INVITATION_ANSWER& answer);
    bool AskPermission(WORDS words);
    bool WithdrawPermission(WORDS words);
    bool ExpectPermission(WORDS words);
    bool ReadQuestion(WORDS words, QUESTION& question);
    bool OpenPrompt(unsigned int uAgent, const QUESTION& question, std::vector<unsigned int>& prompts);
    bool ReadPrompt(WORDS words, unsigned int& uPrompt);
    bool ReadExpectedAnswer(WORDS words, EXPECTED_ANSWER& expected);
    bool CheckAnswer(unsigned int uPrompt, const MSG_PERMISSION_PROMPT& answer,
                     const EXPECTED_ANSWER& expected);
    bool HasNoPromptFault();
    bool FailWaiting(std::wstring_view what, DWORD dwMilliseconds);
    bool OpenDropWindow(const std::wstring& viewer, const std::wstring& eventName);
    bool SendDropClient(DROP_WINDOW& window);
    bool CloseDropWindow();
    bool ExpectDropped(WORDS words);
    std::vector<std::wstring> TakeDroppedNames();
    bool Launch(WORDS words, unsigned int& uProgram);
    bool AwaitExit(unsigned int uProgram, DWORD dwMilliseconds, std::optional<DWORD> expected);

    CStandInService& m_service;
    const SCRIPT_SETTINGS m_settings;
    CSessionKeeper m_keeper;
    CPlayedSession m_playedSession;
    CPrograms m_programs;
    CLaidCertificates m_certificates;
    std::optional<unsigned int> m_target = 1; // empty: all that are connected
    std::optional<DROP_WINDOW> m_dropWindow;
    HWND m_hWindow = nullptr;  // the window last waited for
    unsigned int m_uRound = 0; // of the innermost repeat
    int m_nExitCode = 0;
    bool m_bQuit = false;
    std::wstring m_error;
    bool m_bErrorHasLine = false;
};
