#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// The decisions from which a target makes one input, in the order in which it asks for them: drawn from a
/// seed and remembered, or played back. Behind the end of what is played back every answer is 0, so a target
/// asks in such a way that 0 is the plainest case and comes to an end. One thread at a time.
class CChoices
{
  public:
    /// Draws from a seed.
    explicit CChoices(std::uint64_t ullSeed);
    /// Plays back what ReadChoices has read.
    explicit CChoices(std::vector<std::uint32_t> kept);

    /// One of 0, 1, … nCount - 1; nCount isn't 0.
    std::uint32_t Below(std::uint32_t nCount);

    /// True once in so many times.
    bool OneIn(std::uint32_t nCount) { return Below(nCount) == nCount - 1; }

    /// Any number; those at which something changes come often.
    std::uint32_t Number();

    /// Names what the next decisions are for, for whoever reads Text. The text must live for ever.
    void Step(const char* pszStep);

    /// The decisions so far, a line a step with its name as a comment. What ReadChoices takes.
    std::string Text() const;

  private:
    struct STEP
    {
        size_t nFirst; // decision
        const char* pszName;
    };

    std::uint32_t Next(std::uint32_t nDrawn);

    std::uint64_t m_ullState = 0;
    bool m_bKept = false;
    size_t m_nNext = 0;
    std::vector<std::uint32_t> m_numbers;
    std::vector<STEP> m_steps;
};

/// A generator for what isn't worth a decision each, such as the bytes of a filling. Plain and the same
/// everywhere. One thread at a time.
class CRandom
{
  public:
    explicit CRandom(std::uint64_t ullSeed) : m_ullState(ullSeed) {}

    /// The next 64 bits.
    std::uint64_t Next();
    /// With bytes of Next.
    void Fill(std::span<unsigned char> bytes);

  private:
    std::uint64_t m_ullState;
};

/// The numbers of a text: a comment begins with '#' and ends with its line. False when anything else than
/// numbers of 32 bits is in it. Any thread.
bool ReadChoices(std::string_view text, std::vector<std::uint32_t>& numbers);
