#pragma once

#include <winsock2.h>
#include <windows.h>

#include <cstddef>
#include <string>

// The profile of the service's settings, and where it holds the language, whose name is that of the
// environment variable, too.
constexpr wchar_t SETTINGS_COMPANY[] = L"Tessaran Development";
constexpr wchar_t SETTINGS_APPLICATION[] = L"Kestrel Desk Assist Service";
constexpr wchar_t SETTINGS_SECTION[] = L"Settings";
constexpr wchar_t LANGUAGE_VALUE[] = L"LangUI";
constexpr wchar_t DEFAULT_LANGUAGE[] = L"en"; // its module lies directly beside the executable
constexpr DWORD MAX_LANGUAGE = 128;           // characters of a language's code, terminator included

// The system's header would turn the names of the store's operations into others.
#undef GetProfileInt
#undef GetProfileString
#undef WriteProfileString

/// A keyed store of sections and entries. A null default or value is allowed where the line says so; a null
/// section never is, and fails. Writing gives whether it was done; only a deletion leaves the reason of a
/// failure as the last error.
class IProfileReg
{
  public:
    /// The number stored, or the default when there is none, or one of more than four bytes.
    virtual DWORD GetProfileInt(const wchar_t* pszSection, const wchar_t* pszEntry, DWORD dwDefault) = 0;

    /// Stores a number of 32 bits.
    virtual bool WriteProfileInt(const wchar_t* pszSection, const wchar_t* pszEntry, DWORD dwValue) = 0;

    /// The text stored, or the default (null: empty) when there is none. The object owns the result, which is
    /// valid until the next call.
    virtual const wchar_t* GetProfileString(const wchar_t* pszSection, const wchar_t* pszEntry,
                                            const wchar_t* pszDefault) = 0;

    /// Stores a text; a null text or entry deletes instead.
    virtual bool WriteProfileString(const wchar_t* pszSection, const wchar_t* pszEntry,
                                    const wchar_t* pszValue) = 0;

    /// Reads up to *pcbData bytes; *pcbData becomes the number stored, also when they don't fit. Result:
    /// whether all were read.
    virtual bool GetProfileBinary(const wchar_t* pszSection, const wchar_t* pszEntry, BYTE* pData,
                                  DWORD* pcbData) = 0;

    /// Stores bytes; null data delete instead.
    virtual bool WriteProfileBinary(const wchar_t* pszSection, const wchar_t* pszEntry, const BYTE* pData,
                                    DWORD cbData) = 0;

  protected:
    ~IProfileReg() = default;
};

/// The store in the registry, under Software\company\application\section of one root key. Any thread: each
/// operation is atomic, though the text of GetProfileString may be overwritten by another thread's call.
// NOLINTNEXTLINE(cppcoreguidelines-virtual-class-destructor): nobody can delete it through a base
class CProfileReg final : public IProfileReg
{
  public:
    CProfileReg(const wchar_t* pszCompany, const wchar_t* pszApplication);
    ~CProfileReg();
    CProfileReg(const CProfileReg&) = delete;
    CProfileReg& operator=(const CProfileReg&) = delete;

    DWORD GetProfileInt(const wchar_t* pszSection, const wchar_t* pszEntry, DWORD dwDefault) override;
    bool WriteProfileInt(const wchar_t* pszSection, const wchar_t* pszEntry, DWORD dwValue) override;
    const wchar_t* GetProfileString(const wchar_t* pszSection, const wchar_t* pszEntry,
                                    const wchar_t* pszDefault) override;
    bool WriteProfileString(const wchar_t* pszSection, const wchar_t* pszEntry,
                            const wchar_t* pszValue) override;
    bool GetProfileBinary(const wchar_t* pszSection, const wchar_t* pszEntry, BYTE* pData,
                          DWORD* pcbData) override;
    bool WriteProfileBinary(const wchar_t* pszSection, const wchar_t* pszEntry, const BYTE* pData,
                            DWORD cbData) override;

    /// All later operations go to this root, which stays the caller's; it starts as HKEY_LOCAL_MACHINE.
    void SetRootKey(HKEY hRootKey);

    /// Deletes an entry: a subkey of that name if there is one, else the value. With a null entry nothing is
    /// deleted: the call fails, with 1010 where the application has a key at all. The last error is the
    /// result as a Windows error code.
    bool Delete(const wchar_t* pszSection, const wchar_t* pszEntry);

  private:
    static constexpr size_t MAX_PROFILE_TEXT = 2048; // characters, terminator included

    bool Read(const wchar_t* pszSection, const wchar_t* pszEntry, void* pData, DWORD* pcbData);
    bool Write(const wchar_t* pszSection, const wchar_t* pszEntry, DWORD dwType, const void* pData,
               DWORD cbData);
    bool BuildPath(wchar_t (&szPath)[MAX_PROFILE_TEXT], const wchar_t* pszSection) const;
    LSTATUS DeleteEntry(const wchar_t* pszSection, const wchar_t* pszEntry);
    LSTATUS DeleteSection();

    HKEY m_hRootKey = HKEY_LOCAL_MACHINE;
    wchar_t m_szCompany[MAX_PROFILE_TEXT] = {};
    wchar_t m_szApplication[MAX_PROFILE_TEXT] = {};
    wchar_t m_szResult[MAX_PROFILE_TEXT] = {};
    CRITICAL_SECTION m_lock;
};

/// Deletes a key with all below it. Result: a Windows error code; 1010 for a null or empty name. Any thread.
LSTATUS DeleteKeyTree(HKEY hParent, const wchar_t* pszName);

/// The service's store, machine-wide until the service lets each user choose a language.
extern CProfileReg g_ProfileReg;

/// Where the language of the user interface is kept, by its code. One thread at a time.
class ILanguageSettingsStorage
{
  public:
    /// The code of the language in force.
    virtual std::wstring GetLanguage() = 0;

    /// False, and nothing changes, when the language can't be kept or is empty.
    virtual bool SetLanguage(const std::wstring& language) = 0;

  protected:
    ~ILanguageSettingsStorage() = default;
};

/// Keeps the language in memory.
class TKRegistrySettingsStorage : public ILanguageSettingsStorage
{
  public:
    std::wstring GetLanguage() override;
    bool SetLanguage(const std::wstring& language) override;

    /// The name under which the language is known, and the language to begin with. An empty one stands for
    /// the product's own.
    void Initialize(const std::wstring& name, const std::wstring& language);

  protected:
    ~TKRegistrySettingsStorage() = default;

    std::wstring m_name;
    std::wstring m_language;
};

/// Keeps the language in a profile and in the environment, where child processes and LoadLanguageModule find
/// it.
// NOLINTNEXTLINE(cppcoreguidelines-virtual-class-destructor): nobody can delete it through a base
class TKCProfileRegStorage final : public TKRegistrySettingsStorage
{
  public:
    /// Takes the stored language into the environment, or the given one where none is stored. The profile
    /// must outlive the object; without one nothing can be stored.
    TKCProfileRegStorage(IProfileReg* pProfile, const std::wstring& name, const std::wstring& language);

    bool SetLanguage(const std::wstring& language) override;

  private:
    IProfileReg* m_pProfile;
};

/// Takes the stored language, or the default, into the environment of this process. The storage that does so
/// lives to the end of the process. Any thread, one at a time.
void CreateLanguageStorage(IProfileReg* pProfile);

/// Loads the module of texts, dialogs and icons for the language in the environment, else for the default
/// language: as data, no code of it runs. Result: the module, which is the caller's, or null with the last
/// error. Any thread.
HMODULE LoadLanguageModule(const wchar_t* pszFile);
