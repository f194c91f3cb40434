#pragma once

#include "channel/TrayMessageTable.h"
#include "fuzz/Choices.h"
#include "tests/support/GuardedRecord.h"

#include <span>
#include <string>
#include <vector>

/// Memory whose last byte is followed by none: whatever is put there ends where the memory ends. Made once
/// and used again, as new pages for each record would cost more than the record.
class CGuardedMemory
{
  public:
    explicit CGuardedMemory(size_t nBytes) : m_bytes(nBytes), m_nBytes(nBytes) {}

    /// nBytes, at most all, at the end of the memory, which lives as long as the object.
    BYTE* Tail(size_t nBytes) const { return m_bytes.Get() + m_nBytes - nBytes; }

    /// A copy of the bytes there.
    BYTE* Put(std::span<const BYTE> bytes) const;

    size_t Size() const { return m_nBytes; }

  private:
    GuardedBytes m_bytes;
    size_t m_nBytes;
};

/// A record that was filled and then changed in some of its fields: numbers at their limits, texts without an
/// end, with formats, halves of characters or leftovers behind their end. Any thread, as all functions below.
std::vector<BYTE> MakeBadRecord(CChoices& choices, const RECORD_DESCRIPTION& record);

/// Changes one field of a record.
void SpoilField(CChoices& choices, const RECORD_FIELD& field, BYTE* pRecord);

/// A text of at most cchMost characters, which may hold zeros.
std::wstring MakeBadText(CChoices& choices, size_t cchMost);

/// Any bytes, at most so many.
std::vector<BYTE> MakeBadBytes(CChoices& choices, size_t nMost);
