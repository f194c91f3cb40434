#pragma once

#include "Include/Handles.h"
#include "devservice/ServiceEvent.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

class CStandInService;

/*
 * A recorded session is a text: one step a line, "SECONDS WHAT AGENT [BYTES]", where WHAT is
 *   open      the agent connected
 *   >         the service sent these bytes
 *   <         the agent sent these bytes
 *   closed    the service closed the connection
 *   left      the agent did
 * and BYTES are hexadecimal. Lines that begin with # say in words what stands above them. Secrets are in the
 * bytes, unlike in the log: a recording is for tests, not for handing round.
 */

enum class RECORDED_STEP_KIND
{
    Open,
    FromService,
    FromAgent,
    ClosedByService,
    ClosedByAgent,
};

struct RECORDED_STEP
{
    unsigned int uLine;
    double dblSeconds;
    RECORDED_STEP_KIND kind;
    unsigned int uAgent;
    std::vector<BYTE> bytes;
};

/// Writes a session as it happens. One thread at a time, as event sinks are called.
class CRecorder
{
  public:
    /// Starts the file anew. False leaves the reason as the last error.
    bool Open(const std::wstring& path);

    /// For CStandInService::AddSink.
    void OnEvent(const SERVICE_EVENT& event);

  private:
    CFileHandle m_hFile;
};

/// The line of a recording for that event, with its line's end; empty if the event is no step. Any thread.
std::wstring FormatRecordedStep(const SERVICE_EVENT& event);

/// Reads a recording. Empty leaves the reason, with the line's number, in error. Any thread.
std::optional<std::vector<RECORDED_STEP>> ParseRecording(std::wstring_view text, std::wstring& error);

/// Plays the service's side: sends what the service sent after the pauses it had, and waits wherever the
/// agent sent something until it sends a message of the same type. The service must listen; its own handshake
/// is switched off. False leaves the reason, with the line's number, in error. One thread, which waits.
bool PlayRecording(CStandInService& service, const std::vector<RECORDED_STEP>& steps, std::wstring& error);
