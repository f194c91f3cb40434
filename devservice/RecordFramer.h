#pragma once

#include "channel/TrayMessageTable.h"

#include <cstddef>
#include <span>
#include <vector>

enum class FRAME_RESULT
{
    NeedMore,  // the next record isn't whole yet
    Record,    // one whole record
    FrameLost, // a type that nobody knows, or a payload beyond all reason
};

// A chat payload longer than this can only be a stream that has lost its frame.
constexpr DWORD LARGEST_CHAT_PAYLOAD = 256 * 1024 * 1024;

/// Cuts a byte stream of the main channel into records, however it arrives in pieces. There is no way back
/// from a lost frame: from then on all bytes are raw. One thread at a time.
class CRecordFramer
{
  public:
    /// direction: who sends the stream.
    explicit CRecordFramer(MESSAGE_DIRECTION direction) : m_direction(direction) {}

    /// The stream's next bytes, as many as have come.
    void Append(std::span<const BYTE> bytes);

    /// Takes the next record. With FRAME_RESULT::FrameLost record holds all bytes that have come since.
    FRAME_RESULT Next(std::vector<BYTE>& record, const MESSAGE_DESCRIPTION*& pMessage);

    /// Whether Next has met FRAME_RESULT::FrameLost.
    bool IsFrameLost() const { return m_bFrameLost; }

    /// Bytes of a record that isn't whole.
    size_t Pending() const { return m_bytes.size() - m_nTaken; }

  private:
    FRAME_RESULT LoseFrame(std::vector<BYTE>& record);
    void Take(size_t nBytes, std::vector<BYTE>& record);

    const MESSAGE_DIRECTION m_direction;
    std::vector<BYTE> m_bytes;
    size_t m_nTaken = 0;
    bool m_bFrameLost = false;
};
