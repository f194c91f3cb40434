#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/*
 * The script language's text: one command a line, words parted by blanks, # begins a comment. A word or a
 * part of it may stand in quotes, where \" \\ \n \r \t and \uHHHH are escapes; outside of quotes a backslash
 * is itself. name=value and name!=value are one word. repeat N ... end is a block.
 *
 * All functions may run on any thread.
 */

struct SCRIPT_WORD
{
    std::wstring text;    // the whole word without its quotes
    size_t cchName = 0;   // name=value: length of the name; else 0
    bool bNot = false;    // name!=value
    bool bQuoted = false; // began with a quote: never an option of a command

    bool IsAssignment() const { return cchName > 0; }
    // Of an assignment; the views live as long as the word.
    std::wstring_view Name() const { return std::wstring_view(text).substr(0, cchName); }
    std::wstring_view Value() const;
};

/// name=value as one word.
SCRIPT_WORD MakeAssignment(std::wstring_view name, std::wstring_view value);

/// True for name=value with that name.
bool IsOption(const SCRIPT_WORD& word, std::wstring_view name);

/// The first name=value with that name, or null.
const SCRIPT_WORD* FindOption(std::span<const SCRIPT_WORD> words, std::wstring_view name);

/// True when that word is there, not in quotes, and is the text.
bool IsWord(std::span<const SCRIPT_WORD> words, size_t nIndex, std::wstring_view text);

// within=MS: how long a command waits.
constexpr std::wstring_view WITHIN_OPTION = L"within";

struct SCRIPT_STATEMENT
{
    unsigned int uLine = 0;
    std::vector<SCRIPT_WORD> words;     // never empty; the first is the command
    std::vector<SCRIPT_STATEMENT> body; // of a repeat
};

/// Splits one line; one of nothing but blanks or a comment has no words. False leaves the reason in error.
bool SplitScriptLine(std::wstring_view line, std::vector<SCRIPT_WORD>& words, std::wstring& error);

/// Takes a script line by line and builds its statements. Errors begin with the line's number. One thread.
class CScriptParser
{
  public:
    /// False leaves the reason in error; the line counts as not given.
    bool AddLine(std::wstring_view line, std::wstring& error);

    /// True when no block is open.
    bool IsComplete() const { return m_open.empty(); }

    /// The statements so far. False, with the reason in error, while a block is open.
    bool Take(std::vector<SCRIPT_STATEMENT>& statements, std::wstring& error);

  private:
    bool CloseBlock(std::wstring& error);

    unsigned int m_uLine = 0;
    std::vector<SCRIPT_STATEMENT> m_statements;
    std::vector<SCRIPT_STATEMENT> m_open; // blocks whose end hasn't come, outermost first
};

/// Parses a whole script, with either kind of line's end. False leaves the reason in error.
bool ParseScript(std::wstring_view text, std::vector<SCRIPT_STATEMENT>& statements, std::wstring& error);

/// "line 12: " and the text.
std::wstring AtLine(unsigned int uLine, std::wstring_view text);
