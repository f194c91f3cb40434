#pragma once

#include <winsock2.h>
#include <windows.h>

#include <cstddef>

/// A key that this thread takes for held down as long as the object lives; 0: none.
class HeldKey
{
  public:
    explicit HeldKey(int nKey) : m_nKey(nKey) { Set(KEY_IS_DOWN); }
    ~HeldKey() { Set(0); }
    HeldKey(const HeldKey&) = delete;
    HeldKey& operator=(const HeldKey&) = delete;

  private:
    static constexpr BYTE KEY_IS_DOWN = 0x80;
    static constexpr size_t KEYS = 256;

    void Set(BYTE bState) const
    {
        if (m_nKey == 0)
        {
            return;
        }
        BYTE states[KEYS] = {};
        GetKeyboardState(states);
        states[m_nKey] = bState;
        SetKeyboardState(states);
    }

    const int m_nKey;
};
