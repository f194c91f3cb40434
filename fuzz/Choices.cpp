#include "fuzz/Choices.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <iterator>
#include <utility>

namespace
{
constexpr std::uint32_t BOUNDARIES[] = {
    0,          1,          2,          3,          4,          5,          7,          8,
    9,          15,         16,         31,         32,         63,         64,         100,
    101,        102,        103,        127,        128,        129,        255,        256,
    257,        259,        260,        261,        511,        512,        513,        519,
    520,        521,        1023,       1024,       1025,       2047,       2048,       4095,
    4096,       4097,       6129,       8095,       8096,       8097,       32767,      32768,
    65506,      65507,      65508,      65535,      65536,      65537,      0x00FFFFFF, 0x01000000,
    0x3FFFFFFF, 0x40000000, 0x40000001, 0x7FFFFFFE, 0x7FFFFFFF, 0x80000000, 0x80000001, 0xFFFFFFFE,
    0xFFFFFFFF};
constexpr std::uint32_t NUMBER_KINDS = 4;
constexpr char BLANKS[] = " \t\r\n";
} // namespace

// Steele, Lea and Flood's mixing of a counter: good enough, and short.
std::uint64_t CRandom::Next()
{
    m_ullState += 0x9E3779B97F4A7C15ULL;
    std::uint64_t ullMixed = m_ullState;
    ullMixed = (ullMixed ^ (ullMixed >> 30)) * 0xBF58476D1CE4E5B9ULL;
    ullMixed = (ullMixed ^ (ullMixed >> 27)) * 0x94D049BB133111EBULL;
    return ullMixed ^ (ullMixed >> 31);
}

void CRandom::Fill(std::span<unsigned char> bytes)
{
    while (!bytes.empty())
    {
        const std::uint64_t ullBytes = Next();
        const size_t nPart = std::min(bytes.size(), sizeof(ullBytes));
        std::memcpy(bytes.data(), &ullBytes, nPart);
        bytes = bytes.subspan(nPart);
    }
}

CChoices::CChoices(std::uint64_t ullSeed) : m_ullState(ullSeed) {}

CChoices::CChoices(std::vector<std::uint32_t> kept) : m_bKept(true), m_numbers(std::move(kept)) {}

std::uint32_t CChoices::Next(std::uint32_t nDrawn)
{
    if (!m_bKept)
    {
        m_numbers.push_back(nDrawn);
        return nDrawn;
    }
    return m_nNext < m_numbers.size() ? m_numbers[m_nNext++] : 0;
}

std::uint32_t CChoices::Below(std::uint32_t nCount)
{
    CRandom random(m_ullState++);
    return Next(static_cast<std::uint32_t>(random.Next() % nCount)) % nCount;
}

std::uint32_t CChoices::Number()
{
    CRandom random(m_ullState++);
    const std::uint64_t ullDrawn = random.Next();
    const std::uint32_t nDrawn = static_cast<std::uint32_t>(ullDrawn);
    return Next((ullDrawn >> 32) % NUMBER_KINDS == 0 ? nDrawn : BOUNDARIES[nDrawn % std::size(BOUNDARIES)]);
}

void CChoices::Step(const char* pszStep)
{
    m_steps.push_back({m_bKept ? m_nNext : m_numbers.size(), pszStep});
}

std::string CChoices::Text() const
{
    std::string text;
    size_t nNumber = 0;
    const auto appendUpTo = [&](size_t nEnd) {
        for (; nNumber < std::min(nEnd, m_numbers.size()); ++nNumber)
        {
            text += std::to_string(m_numbers[nNumber]) + ' ';
        }
    };
    for (const STEP& step : m_steps)
    {
        appendUpTo(step.nFirst);
        text += std::string("\n# ") + step.pszName + '\n';
    }
    appendUpTo(m_numbers.size());
    return text + '\n';
}

bool ReadChoices(std::string_view text, std::vector<std::uint32_t>& numbers)
{
    while (!text.empty())
    {
        if (text.front() == '#')
        {
            text.remove_prefix(std::min(text.find('\n'), text.size()));
        }
        else if (std::string_view(BLANKS).find(text.front()) != std::string_view::npos)
        {
            text.remove_prefix(1);
        }
        else
        {
            std::uint32_t nNumber = 0;
            const auto [pEnd, error] = std::from_chars(text.data(), text.data() + text.size(), nNumber);
            if (error != std::errc())
            {
                return false;
            }
            numbers.push_back(nNumber);
            text.remove_prefix(static_cast<size_t>(pEnd - text.data()));
        }
    }
    return true;
}
