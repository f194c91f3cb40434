#include "devservice/LineReader.h"
#include "devservice/Options.h"
#include "devservice/RecordLog.h"
#include "devservice/Recording.h"
#include "devservice/Resource.h"
#include "devservice/ScriptRunner.h"
#include "devservice/StandInService.h"
#include "devservice/TextFile.h"
#include "devservice/ValueText.h"

#include <log4cxx/level.h>
#include <log4cxx/logger.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace
{
constexpr int EXIT_HELD = 0;
constexpr int EXIT_NOT_HELD = 1;
constexpr int EXIT_BAD_OPTION = 2;
// How long the system waits for us when the console is closed is about this, too.
constexpr DWORD ORDERLY_END_MS = 5000;

void PrintError(std::wstring_view text)
{
    WriteStandard(GetStdHandle(STD_ERROR_HANDLE), L"TKDAS: " + std::wstring(text) + L"\n");
}

int Fail(std::wstring_view text, int nExitCode = EXIT_NOT_HELD)
{
    PrintError(text);
    return nExitCode;
}

// Ctrl-C and its kin arrive on a thread of the system's: they end the waits and the read of the main thread,
// and hold the system until that has tidied up.
class CInterruption
{
  public:
    explicit CInterruption(CStandInService& service)
    {
        s_pService = &service;
        DuplicateHandle(GetCurrentProcess(), GetCurrentThread(), GetCurrentProcess(), s_hMainThread.put(), 0,
                        FALSE, DUPLICATE_SAME_ACCESS);
        s_hEnded.reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
        SetConsoleCtrlHandler(&OnControl, TRUE);
    }

    ~CInterruption()
    {
        SetConsoleCtrlHandler(&OnControl, FALSE);
        SetEvent(s_hEnded.get());
    }

    CInterruption(const CInterruption&) = delete;
    CInterruption& operator=(const CInterruption&) = delete;

  private:
    static BOOL WINAPI OnControl(DWORD)
    {
        s_pService->Interrupt();
        CancelSynchronousIo(s_hMainThread.get());
        // A read that can't be cancelled must not keep the program: the system's own handler then ends it.
        return WaitForSingleObject(s_hEnded.get(), ORDERLY_END_MS) == WAIT_OBJECT_0;
    }

    static inline CStandInService* s_pService = nullptr;
    static inline CKernelHandle s_hMainThread;
    static inline CKernelHandle s_hEnded;
};

std::wstring ProgramFolder()
{
    constexpr DWORD cchPath = 32768;
    std::wstring path(cchPath, L'\0');
    path.resize(GetModuleFileNameW(nullptr, path.data(), cchPath));
    return std::filesystem::path(path).parent_path().wstring();
}

std::optional<std::string> DemoStory()
{
    const HRSRC hInfo = FindResourceW(nullptr, MAKEINTRESOURCEW(IDR_DEMO_STORY), RT_RCDATA);
    const HGLOBAL hData = hInfo != nullptr ? LoadResource(nullptr, hInfo) : nullptr;
    const void* const pData = hData != nullptr ? LockResource(hData) : nullptr;
    if (pData == nullptr)
    {
        return std::nullopt;
    }
    return std::string(static_cast<const char*>(pData), SizeofResource(nullptr, hInfo));
}

int ExitCodeOf(SCRIPT_RESULT result, const CScriptRunner& runner)
{
    if (result == SCRIPT_RESULT::Failed)
    {
        return Fail(runner.GetError());
    }
    return result == SCRIPT_RESULT::Quit ? runner.GetExitCode() : EXIT_HELD;
}

int PlayScript(CScriptRunner& runner, const std::string& text)
{
    std::vector<SCRIPT_STATEMENT> statements;
    std::wstring error;
    if (!ParseScript(FromUtf8(text), statements, error) || !CScriptRunner::Check(statements, error))
    {
        return Fail(error);
    }
    return ExitCodeOf(runner.Run(statements), runner);
}

int PlayRecordedSession(CStandInService& service, const TKDAS_OPTIONS& options)
{
    const std::optional<std::string> text = ReadWholeFile(options.playFile);
    if (!text)
    {
        return Fail(SystemErrorText(L"cannot read " + options.playFile, GetLastError()), EXIT_BAD_OPTION);
    }
    std::wstring error;
    const std::optional<std::vector<RECORDED_STEP>> steps = ParseRecording(FromUtf8(*text), error);
    if (!steps)
    {
        return Fail(error);
    }
    // Before the first agent can come: the recording has the handshake.
    service.SetHandshake(std::nullopt);
    if (!service.Listen(options.nPort))
    {
        return Fail(
            SystemErrorText(L"cannot listen on port " + std::to_wstring(options.nPort), GetLastError()));
    }
    return PlayRecording(service, *steps, error) ? EXIT_HELD : Fail(error);
}

// One line of the standard input, or one whole block.
SCRIPT_RESULT RunLine(CScriptRunner& runner, CScriptParser& parser, std::wstring_view line,
                      std::wstring& error)
{
    std::vector<SCRIPT_STATEMENT> statements;
    if (!parser.AddLine(line, error))
    {
        return SCRIPT_RESULT::Failed;
    }
    if (!parser.IsComplete())
    {
        return SCRIPT_RESULT::Done;
    }
    if (!parser.Take(statements, error) || !CScriptRunner::Check(statements, error))
    {
        return SCRIPT_RESULT::Failed;
    }
    const SCRIPT_RESULT result = runner.Run(statements);
    error = runner.GetError();
    return result;
}

int TakeCommands(CStandInService& service, CScriptRunner& runner, bool bInteractive)
{
    CLineReader reader(GetStdHandle(STD_INPUT_HANDLE));
    bInteractive = bInteractive || reader.IsConsole();
    CScriptParser parser;
    std::wstring error;
    if (bInteractive)
    {
        for (const wchar_t* const pszLine :
             {L"listen", L"lookup", L"answers on", L"invitations make", L"deletions answer"})
        {
            CScriptParser first;
            if (RunLine(runner, first, pszLine, error) == SCRIPT_RESULT::Failed)
            {
                PrintError(error);
            }
        }
        service.Note(L"commands, please; help lists them, quit ends");
    }
    while (const std::optional<std::wstring> line = reader.ReadLine())
    {
        const SCRIPT_RESULT result = RunLine(runner, parser, *line, error);
        if (result == SCRIPT_RESULT::Quit)
        {
            return runner.GetExitCode();
        }
        if (service.IsInterrupted())
        {
            break;
        }
        if (result == SCRIPT_RESULT::Failed && !bInteractive)
        {
            return Fail(error);
        }
        if (result == SCRIPT_RESULT::Failed)
        {
            PrintError(error);
        }
    }
    std::vector<SCRIPT_STATEMENT> rest;
    if (!parser.Take(rest, error))
    {
        return Fail(error);
    }
    return EXIT_HELD;
}

int RunMode(CStandInService& service, CScriptRunner& runner, const TKDAS_OPTIONS& options)
{
    if (!options.playFile.empty())
    {
        return PlayRecordedSession(service, options);
    }
    if (!options.bDemo && options.scriptFile.empty())
    {
        return TakeCommands(service, runner, options.bInteractive);
    }
    const std::optional<std::string> story = options.bDemo ? DemoStory() : ReadWholeFile(options.scriptFile);
    if (!story)
    {
        return Fail(SystemErrorText(L"cannot read " + options.scriptFile, GetLastError()), EXIT_BAD_OPTION);
    }
    return PlayScript(runner, *story);
}

int RunService(const TKDAS_OPTIONS& options)
{
    CRecordLog log;
    CRecorder recorder;
    log.UseConsole();
    if (!options.logFile.empty() && !log.UseFile(options.logFile))
    {
        return Fail(SystemErrorText(L"cannot write " + options.logFile, GetLastError()), EXIT_BAD_OPTION);
    }
    const bool bRecord = !options.recordFile.empty();
    if (bRecord && !recorder.Open(options.recordFile))
    {
        return Fail(SystemErrorText(L"cannot write " + options.recordFile, GetLastError()), EXIT_BAD_OPTION);
    }

    CStandInService service;
    service.AddSink([&log](const SERVICE_EVENT& event) { log.OnEvent(event); });
    if (bRecord)
    {
        service.AddSink([&recorder](const SERVICE_EVENT& event) { recorder.OnEvent(event); });
    }
    const CInterruption interruption(service);
    SCRIPT_SETTINGS settings;
    settings.nPort = options.nPort;
    settings.nQueryPort = options.nQueryPort;
    settings.programFolder = ProgramFolder();
    settings.marksFolder = options.marksFolder;
    CScriptRunner runner(service, std::move(settings));
    const int nExitCode = RunMode(service, runner, options);
    runner.EndPrograms();
    return nExitCode;
}
} // namespace

int wmain(int argc, wchar_t** argv)
{
    // What is shared with the agent logs as the agent does; here the time line tells everything.
    log4cxx::Logger::getRootLogger()->setLevel(log4cxx::Level::getOff());
    const std::vector<std::wstring> words(argv + 1, argv + argc);
    std::wstring error;
    const std::optional<TKDAS_OPTIONS> options = ParseOptions(words, error);
    if (!options)
    {
        return Fail(error + L"; --help lists the options", EXIT_BAD_OPTION);
    }
    if (options->bHelp)
    {
        WriteStandard(GetStdHandle(STD_OUTPUT_HANDLE), UsageText());
        return EXIT_HELD;
    }
    return RunService(*options);
}
