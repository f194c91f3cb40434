#include "devservice/RecordFramer.h"

#include "channel/TrayMessages.h"
#include "devservice/RecordText.h"

void CRecordFramer::Append(std::span<const BYTE> bytes)
{
    if (m_nTaken > 0)
    {
        m_bytes.erase(m_bytes.begin(), m_bytes.begin() + static_cast<ptrdiff_t>(m_nTaken));
        m_nTaken = 0;
    }
    m_bytes.insert(m_bytes.end(), bytes.begin(), bytes.end());
}

FRAME_RESULT CRecordFramer::Next(std::vector<BYTE>& record, const MESSAGE_DESCRIPTION*& pMessage)
{
    pMessage = nullptr;
    const std::span<const BYTE> rest = std::span<const BYTE>(m_bytes).subspan(m_nTaken);
    if (m_bFrameLost)
    {
        return rest.empty() ? FRAME_RESULT::NeedMore : LoseFrame(record);
    }
    if (rest.size() < sizeof(DWORD))
    {
        return FRAME_RESULT::NeedMore;
    }
    const MESSAGE_DESCRIPTION* const pFound = FindMessageDescription(ReadDword(rest, 0), m_direction);
    if (pFound == nullptr)
    {
        return LoseFrame(record);
    }
    size_t nSize = pFound->pRecord->uSize;
    if (rest.size() < nSize)
    {
        return FRAME_RESULT::NeedMore;
    }
    if (pFound->dwType == MSG_TYPE_CHAT_MESSAGE)
    {
        const DWORD dwLength = ReadDword(rest, offsetof(MSG_CHAT_MESSAGE, dwMessageLength));
        if (dwLength > LARGEST_CHAT_PAYLOAD)
        {
            return LoseFrame(record);
        }
        nSize += dwLength;
        if (rest.size() < nSize)
        {
            return FRAME_RESULT::NeedMore;
        }
    }
    pMessage = pFound;
    Take(nSize, record);
    return FRAME_RESULT::Record;
}

FRAME_RESULT CRecordFramer::LoseFrame(std::vector<BYTE>& record)
{
    m_bFrameLost = true;
    Take(Pending(), record);
    return FRAME_RESULT::FrameLost;
}

void CRecordFramer::Take(size_t nBytes, std::vector<BYTE>& record)
{
    const auto first = m_bytes.begin() + static_cast<ptrdiff_t>(m_nTaken);
    record.assign(first, first + static_cast<ptrdiff_t>(nBytes));
    m_nTaken += nBytes;
}
