#include "Include/Handles.h"
#include "resources/resource.h"
#include "tests/unit/DialogMeasures.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <iterator>
#include <map>
#include <ostream>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace
{
constexpr DWORD DATAFILE_FLAGS =
    LOAD_LIBRARY_SEARCH_DEFAULT_DIRS | LOAD_LIBRARY_AS_IMAGE_RESOURCE | LOAD_LIBRARY_AS_DATAFILE_EXCLUSIVE;
static_assert(DATAFILE_FLAGS == 0x1060);

constexpr unsigned STRINGS_PER_BLOCK = 16;
constexpr int ICON_SIZES[] = {16, 20, 24, 32, 40, 48, 64, 128, 256};
constexpr WORD ICON_BIT_DEPTH = 32;
constexpr unsigned TRAY_ICONS[] = {IDI_TRAY_IDLE, IDI_TRAY_PERMISSION, IDI_TRAY_ACTIVE,
                                   IDI_TRAY_RECONFIGURING};

// Strings that read the same in English and in a translation because no other word exists.
const std::map<LANGID, std::set<unsigned>> g_sameOnPurpose = {
    {MAKELANGID(LANG_FRENCH, SUBLANG_FRENCH), {IDS_ASK_TITLE}},
    {MAKELANGID(LANG_GERMAN, SUBLANG_GERMAN), {IDS_NOTIFY_NAME, IDS_NOTIFY_COMPUTER, IDS_ASK_TITLE}}};

// ---- What is compared: plain values, so that the comparison itself can be tested.

struct ModuleTexts
{
    std::map<std::wstring, std::set<std::wstring>> idsOfType;
    std::map<unsigned, std::wstring> strings;
    std::map<std::wstring, std::vector<int>> controlsOfDialog; // in the order of Tab
};

std::wstring ResourceName(const wchar_t* pszName)
{
    return IS_INTRESOURCE(pszName) ? L"#" + std::to_wstring(reinterpret_cast<ULONG_PTR>(pszName)) : pszName;
}

bool IsOneOf(wchar_t ch, std::wstring_view set)
{
    return set.find(ch) != std::wstring_view::npos;
}

// The arguments a format string takes, in order: "*" for a width or precision that is an argument, otherwise
// length and conversion. Flags and numbers are left out, since a translation may need more or less room.
std::vector<std::wstring> FormatArguments(std::wstring_view text)
{
    std::vector<std::wstring> arguments;
    for (size_t nAt = text.find(L'%'); nAt != std::wstring_view::npos; nAt = text.find(L'%', nAt))
    {
        ++nAt;
        while (nAt < text.size() && IsOneOf(text[nAt], L"-+ #0123456789.*"))
        {
            if (text[nAt] == L'*')
            {
                arguments.emplace_back(L"*");
            }
            ++nAt;
        }
        std::wstring specifier;
        while (nAt < text.size() &&
               (IsOneOf(text[nAt], L"hlLwzjtI") || (!specifier.empty() && IsOneOf(text[nAt], L"3264"))))
        {
            specifier += text[nAt++];
        }
        if (nAt == text.size())
        {
            arguments.emplace_back(L"cut short");
            break;
        }
        const wchar_t chConversion = text[nAt++];
        if (chConversion != L'%')
        {
            arguments.emplace_back(specifier + chConversion);
        }
    }
    return arguments;
}

// Reads one block of a string table: sixteen texts, each a count and as many characters. A block that ends
// early gives what it holds.
std::map<unsigned, std::wstring> ParseStringBlock(unsigned uBlock, std::span<const wchar_t> block)
{
    std::map<unsigned, std::wstring> strings;
    size_t nAt = 0;
    for (unsigned uIndex = 0; uIndex < STRINGS_PER_BLOCK && nAt < block.size(); ++uIndex)
    {
        const size_t cch = static_cast<size_t>(block[nAt++]);
        if (cch > block.size() - nAt)
        {
            break;
        }
        if (cch != 0)
        {
            strings.emplace((uBlock - 1) * STRINGS_PER_BLOCK + uIndex,
                            std::wstring(block.data() + nAt, block.data() + nAt + cch));
        }
        nAt += cch;
    }
    return strings;
}

std::set<std::wstring> IdsOfType(const ModuleTexts& module, const std::wstring& type)
{
    const auto ids = module.idsOfType.find(type);
    return ids == module.idsOfType.end() ? std::set<std::wstring>() : ids->second;
}

void CompareIds(const ModuleTexts& reference, const ModuleTexts& other,
                std::vector<std::wstring>& differences)
{
    std::set<std::wstring> types;
    for (const auto& [type, ids] : reference.idsOfType)
    {
        types.insert(type);
    }
    for (const auto& [type, ids] : other.idsOfType)
    {
        types.insert(type);
    }
    for (const std::wstring& type : types)
    {
        if (IdsOfType(reference, type) != IdsOfType(other, type))
        {
            differences.push_back(L"ids of type " + type);
        }
    }
}

void CompareStrings(const ModuleTexts& reference, const ModuleTexts& other,
                    const std::set<unsigned>& sameOnPurpose, std::vector<std::wstring>& differences)
{
    for (const auto& [uId, text] : reference.strings)
    {
        const std::wstring name = L"string " + std::to_wstring(uId);
        const auto found = other.strings.find(uId);
        if (found == other.strings.end())
        {
            differences.push_back(name + L" missing");
            continue;
        }
        if (FormatArguments(text) != FormatArguments(found->second))
        {
            differences.push_back(name + L" takes other arguments");
        }
        if ((text == found->second) != sameOnPurpose.contains(uId))
        {
            differences.push_back(name + (text == found->second ? L" untranslated" : L" listed as the same"));
        }
    }
    for (const auto& [uId, text] : other.strings)
    {
        if (!reference.strings.contains(uId))
        {
            differences.push_back(L"string " + std::to_wstring(uId) + L" superfluous");
        }
    }
}

void CompareDialogs(const ModuleTexts& reference, const ModuleTexts& other,
                    std::vector<std::wstring>& differences)
{
    for (const auto& [dialog, controls] : reference.controlsOfDialog)
    {
        const auto found = other.controlsOfDialog.find(dialog);
        if (found == other.controlsOfDialog.end() || found->second != controls)
        {
            differences.push_back(L"controls of dialog " + dialog);
        }
    }
}

// Everything in which a translation doesn't match the reference language, a line each; empty is good.
std::vector<std::wstring> CompareModules(const ModuleTexts& reference, const ModuleTexts& other,
                                         const std::set<unsigned>& sameOnPurpose)
{
    std::vector<std::wstring> differences;
    CompareIds(reference, other, differences);
    CompareStrings(reference, other, sameOnPurpose, differences);
    CompareDialogs(reference, other, differences);
    return differences;
}

// ---- Reading a staged module.

struct StagedLanguage
{
    const char* pszName;
    const wchar_t* pszFolder;
    LANGID wLanguage;
};

void PrintTo(const StagedLanguage& language, std::ostream* pStream)
{
    *pStream << language.pszName;
}

constexpr StagedLanguage ENGLISH = {"en", L"", MAKELANGID(LANG_ENGLISH, SUBLANG_ENGLISH_US)};
constexpr StagedLanguage FRENCH = {"fr", L"Localization\\fr", MAKELANGID(LANG_FRENCH, SUBLANG_FRENCH)};
constexpr StagedLanguage GERMAN = {"de", L"Localization\\de", MAKELANGID(LANG_GERMAN, SUBLANG_GERMAN)};

std::filesystem::path StagedModulePath(const StagedLanguage& language)
{
    const char* pszFromEnvironment = std::getenv("TKDAST_STAGE");
    std::filesystem::path stage(pszFromEnvironment ? pszFromEnvironment : TKDAST_STAGE_DIR);
    if (stage.has_root_directory() && !stage.has_root_name())
    {
        stage = L"Z:" + stage.wstring(); // a path of the build machine, whose root Wine calls Z:
    }
    return (stage / language.pszFolder / L"TKDASTRES.dll").make_preferred();
}

std::span<const std::byte> ResourceBytes(HMODULE hModule, const wchar_t* pszType, const wchar_t* pszName)
{
    const HRSRC hResource = FindResourceW(hModule, pszName, pszType);
    const HGLOBAL hLoaded = hResource ? LoadResource(hModule, hResource) : nullptr;
    const void* pBytes = hLoaded ? LockResource(hLoaded) : nullptr;
    if (!pBytes)
    {
        return {};
    }
    return {static_cast<const std::byte*>(pBytes), SizeofResource(hModule, hResource)};
}

template <typename Record>
Record ReadAt(std::span<const std::byte> bytes, size_t nOffset)
{
    Record record{};
    if (nOffset + sizeof(record) <= bytes.size())
    {
        std::memcpy(&record, bytes.data() + nOffset, sizeof(record));
    }
    return record;
}

BOOL CALLBACK CollectName(HMODULE, LPCWSTR, LPWSTR pszName, LONG_PTR lParam)
{
    reinterpret_cast<std::set<std::wstring>*>(lParam)->insert(ResourceName(pszName));
    return TRUE;
}

std::set<std::wstring> NamesOfType(HMODULE hModule, LPCWSTR pszType)
{
    std::set<std::wstring> names;
    EnumResourceNamesW(hModule, pszType, &CollectName, reinterpret_cast<LONG_PTR>(&names));
    return names;
}

BOOL CALLBACK CollectType(HMODULE hModule, LPWSTR pszType, LONG_PTR lParam)
{
    reinterpret_cast<ModuleTexts*>(lParam)->idsOfType[ResourceName(pszType)] = NamesOfType(hModule, pszType);
    return TRUE;
}

BOOL CALLBACK CollectLanguage(HMODULE, LPCWSTR, LPCWSTR, WORD wLanguage, LONG_PTR lParam)
{
    reinterpret_cast<std::set<LANGID>*>(lParam)->insert(wLanguage);
    return TRUE;
}

BOOL CALLBACK CollectStringBlock(HMODULE hModule, LPCWSTR pszType, LPWSTR pszName, LONG_PTR lParam)
{
    const std::span<const std::byte> bytes = ResourceBytes(hModule, pszType, pszName);
    std::vector<wchar_t> block(bytes.size() / sizeof(wchar_t));
    std::memcpy(block.data(), bytes.data(), block.size() * sizeof(wchar_t));
    const unsigned uBlock = static_cast<unsigned>(reinterpret_cast<ULONG_PTR>(pszName));
    reinterpret_cast<ModuleTexts*>(lParam)->strings.merge(ParseStringBlock(uBlock, block));
    return TRUE;
}

// A dialog as the system makes it of its template, not shown.
CWindow MakeDialog(HMODULE hModule, const wchar_t* pszName)
{
    return CWindow(CreateDialogParamW(
        hModule, pszName, nullptr, +[](HWND, UINT, WPARAM, LPARAM) -> INT_PTR { return FALSE; }, 0));
}

BOOL CALLBACK CollectDialog(HMODULE hModule, LPCWSTR, LPWSTR pszName, LONG_PTR lParam)
{
    const CWindow hDialog = MakeDialog(hModule, pszName);
    std::vector<int>& controls =
        reinterpret_cast<ModuleTexts*>(lParam)->controlsOfDialog[ResourceName(pszName)];
    for (const HWND hControl : ControlsOf(hDialog.get()))
    {
        controls.push_back(GetDlgCtrlID(hControl));
    }
    return TRUE;
}

ModuleTexts ReadModule(HMODULE hModule)
{
    ModuleTexts texts;
    EnumResourceTypesExW(hModule, &CollectType, reinterpret_cast<LONG_PTR>(&texts), RESOURCE_ENUM_LN, 0);
    EnumResourceNamesW(hModule, RT_STRING, &CollectStringBlock, reinterpret_cast<LONG_PTR>(&texts));
    EnumResourceNamesW(hModule, RT_DIALOG, &CollectDialog, reinterpret_cast<LONG_PTR>(&texts));
    return texts;
}

struct MENU_ITEM
{
    UINT uCommand; // 0: opens a sub-menu
    wchar_t chKey;
};

// The items of a menu and of each menu below it, without separators.
void ForEachMenu(HMENU hMenu, const std::function<void(const std::vector<MENU_ITEM>&)>& look)
{
    std::vector<MENU_ITEM> items;
    for (int nItem = 0; nItem < GetMenuItemCount(hMenu); ++nItem)
    {
        wchar_t szText[128] = {};
        GetMenuStringW(hMenu, static_cast<UINT>(nItem), szText, static_cast<int>(std::size(szText)),
                       MF_BYPOSITION);
        const HMENU hSubMenu = GetSubMenu(hMenu, nItem);
        if (hSubMenu != nullptr)
        {
            ForEachMenu(hSubMenu, look);
        }
        if (szText[0] != L'\0')
        {
            items.push_back({hSubMenu != nullptr ? 0 : GetMenuItemID(hMenu, nItem), MarkedKey(szText)});
        }
    }
    EXPECT_FALSE(items.empty());
    look(items);
}

// An image's own width, from its bitmap or PNG header, which the directory might contradict.
int ImageWidth(std::span<const std::byte> image)
{
    constexpr DWORD PNG_SIGNATURE = 0x474E5089;
    constexpr size_t PNG_WIDTH_OFFSET = 16;
    if (ReadAt<DWORD>(image, 0) != PNG_SIGNATURE)
    {
        return static_cast<int>(ReadAt<BITMAPINFOHEADER>(image, 0).biWidth);
    }
    int nWidth = 0;
    for (size_t nByte = 0; nByte < sizeof(DWORD); ++nByte)
    {
        nWidth = nWidth << 8 | ReadAt<std::uint8_t>(image, PNG_WIDTH_OFFSET + nByte);
    }
    return nWidth;
}

// One row of an icon's directory, as it stands in the module.
#pragma pack(push, 2)
struct IconDirectoryEntry
{
    BYTE bWidth; // 0 stands for 256
    BYTE bHeight;
    BYTE bColors;
    BYTE bReserved;
    WORD wPlanes;
    WORD wBitCount;
    DWORD dwBytes;
    WORD wId;
};
#pragma pack(pop)
static_assert(sizeof(IconDirectoryEntry) == 14);

struct IconDirectoryHeader
{
    WORD wReserved;
    WORD wType;
    WORD wCount;
};

// Sizes of the images of one icon that are really there, in full colour.
std::set<int> IconSizes(HMODULE hModule, unsigned uIcon)
{
    const std::span<const std::byte> directory =
        ResourceBytes(hModule, RT_GROUP_ICON, MAKEINTRESOURCEW(uIcon));
    const WORD wCount = ReadAt<IconDirectoryHeader>(directory, 0).wCount;
    std::set<int> sizes;
    for (WORD wEntry = 0; wEntry < wCount; ++wEntry)
    {
        const auto entry = ReadAt<IconDirectoryEntry>(directory, sizeof(IconDirectoryHeader) +
                                                                     wEntry * sizeof(IconDirectoryEntry));
        const std::span<const std::byte> image = ResourceBytes(hModule, RT_ICON, MAKEINTRESOURCEW(entry.wId));
        const int nWidth = ImageWidth(image);
        if (image.size() == entry.dwBytes && entry.wBitCount == ICON_BIT_DEPTH &&
            BYTE(nWidth) == entry.bWidth)
        {
            sizes.insert(nWidth);
        }
    }
    return sizes;
}

class LanguageModule : public testing::TestWithParam<StagedLanguage>
{
  protected:
    void SetUp() override
    {
        m_path = StagedModulePath(GetParam());
        m_module.reset(LoadLibraryExW(m_path.c_str(), nullptr, DATAFILE_FLAGS));
        ASSERT_TRUE(m_module) << m_path << ": " << GetLastError();
    }

    std::filesystem::path m_path;
    CModule m_module;
};

std::string LanguageName(const testing::TestParamInfo<StagedLanguage>& info)
{
    return info.param.pszName;
}

INSTANTIATE_TEST_SUITE_P(Staged, LanguageModule, testing::Values(ENGLISH, FRENCH, GERMAN), LanguageName);

// ---- The modules as they are staged.

TEST_P(LanguageModule, MatchesEnglishInIdsArgumentsAndCompleteness)
{
    const CModule english(LoadLibraryExW(StagedModulePath(ENGLISH).c_str(), nullptr, DATAFILE_FLAGS));
    ASSERT_TRUE(english);
    const ModuleTexts reference = ReadModule(english.get());
    const ModuleTexts texts = ReadModule(m_module.get());
    const auto same = g_sameOnPurpose.find(GetParam().wLanguage);
    std::set<unsigned> sameOnPurpose = same != g_sameOnPurpose.end() ? same->second : std::set<unsigned>();
    if (GetParam().wLanguage == ENGLISH.wLanguage)
    {
        for (const auto& [uId, text] : reference.strings)
        {
            sameOnPurpose.insert(uId);
        }
    }

    ASSERT_FALSE(reference.strings.empty());
    EXPECT_EQ(CompareModules(reference, texts, sameOnPurpose), std::vector<std::wstring>())
        << "in resources/" << GetParam().pszName
        << "/TKDASTRES.rc, against resources/en; the numbers are those of "
        << "resources/resource.h";
}

TEST_P(LanguageModule, HoldsEveryTextTheAgentAsksFor)
{
    for (const unsigned uId : {IDS_CONNECT_FAILED, IDS_SERVICE_STOPPED, IDS_SERVICE_NOT_INSTALLED})
    {
        wchar_t szText[2048] = {};
        EXPECT_GT(LoadStringW(m_module.get(), uId, szText, static_cast<int>(std::size(szText))), 0) << uId;
        EXPECT_EQ(ReadModule(m_module.get()).strings[uId], szText) << uId;
    }
}

TEST_P(LanguageModule, AsksInFullWhetherSettingsOpenThatMayNotBeStored)
{
    constexpr int ROOM_FOR_QUESTION = 260; // characters, terminator included
    wchar_t szText[ROOM_FOR_QUESTION] = {};
    EXPECT_GT(LoadStringW(m_module.get(), IDS_ASK_SETTINGS_NOT_STORED, szText, ROOM_FOR_QUESTION), 0);
    EXPECT_EQ(ReadModule(m_module.get()).strings[7], szText);
    EXPECT_EQ(szText[wcslen(szText) - 1], L'?');
}

TEST_P(LanguageModule, GivesTheFilledInTextsOfThePermissionPromptRoomToSpare)
{
    const CWindow hDialog = MakeDialog(m_module.get(), MAKEINTRESOURCEW(IDD_PERMISSION));
    const HWND hRequest = GetDlgItem(hDialog.get(), IDC_PERMISSION_REQUEST);
    const HWND hCountdown = GetDlgItem(hDialog.get(), IDC_PERMISSION_COUNTDOWN);
    const std::wstring format = TextOf(hRequest);
    const std::map<unsigned, std::wstring> strings = ReadModule(m_module.get()).strings;
    for (const unsigned uPhrase : {IDS_PERMISSION_CONTROL, IDS_PERMISSION_VIEW})
    {
        std::wstring text = format;
        ASSERT_NE(text.find(L"%s"), std::wstring::npos);
        SetWindowTextW(hRequest, text.replace(text.find(L"%s"), 2, strings.at(uPhrase)).c_str());
        EXPECT_TRUE(HasRoomToSpare(hRequest)) << uPhrase;
    }
    std::wstring countdown = strings.at(IDS_PERMISSION_COUNTDOWN);
    SetWindowTextW(hCountdown, countdown.replace(countdown.find(L"%d"), 2, L"120").c_str());
    EXPECT_TRUE(HasRoomToSpare(hCountdown));
}

TEST_P(LanguageModule, OffersBothAnswersOfThePermissionPromptToTheKeyboard)
{
    const CWindow hDialog = MakeDialog(m_module.get(), MAKEINTRESOURCEW(IDD_PERMISSION));
    for (const int nButton : {IDOK, IDCANCEL})
    {
        const HWND hButton = GetDlgItem(hDialog.get(), nButton);
        EXPECT_NE(ShortcutKey(hButton), L'\0');
        EXPECT_NE(GetWindowLongPtrW(hButton, GWL_STYLE) & WS_TABSTOP, 0);
    }
    EXPECT_EQ(GetNextDlgTabItem(hDialog.get(), nullptr, FALSE),
              GetDlgItem(hDialog.get(), IDC_PERMISSION_TEXT))
        << "where a letter that was meant for another window presses no button";
}

TEST_P(LanguageModule, GivesALongNameRoomToSpareInTheDropWindow)
{
    const CWindow hDialog = MakeDialog(m_module.get(), MAKEINTRESOURCEW(IDD_DROP));
    const HWND hText = GetDlgItem(hDialog.get(), IDC_DROP_TEXT);
    std::wstring text = ReadModule(m_module.get()).strings.at(IDS_DROP_HINT);
    EXPECT_EQ(text.back(), L' ') << "the name follows";
    constexpr size_t LONGEST_NAME = 260; // characters
    while (text.size() < LONGEST_NAME)
    {
        text += L"Alexandra Mustermann ";
    }
    SetWindowTextW(hText, text.c_str());
    EXPECT_TRUE(HasRoomToSpare(hText));
}

TEST_P(LanguageModule, MarksTextsAndVersionWithItsOwnLanguage)
{
    for (const LPCWSTR pszType : {RT_STRING, RT_DIALOG, RT_VERSION})
    {
        std::set<LANGID> languages;
        for (const std::wstring& name : NamesOfType(m_module.get(), pszType))
        {
            EnumResourceLanguagesW(m_module.get(), pszType, name.c_str(), &CollectLanguage,
                                   reinterpret_cast<LONG_PTR>(&languages));
        }
        EXPECT_EQ(languages, std::set<LANGID>{GetParam().wLanguage}) << ResourceName(pszType);
    }
}

TEST_P(LanguageModule, HoldsTheDialogsWithTheirControls)
{
    const std::map<std::wstring, std::set<int>> expected = {
        {L"#102", {IDC_NOTIFY_BODY, IDC_NOTIFY_HEAD, IDC_NOTIFY_DISCONNECT}},
        {L"#106", {IDOK, IDC_ABOUT_ICON, IDC_ABOUT_TEXT, IDC_ABOUT_VERSION, IDC_ABOUT_COPY}},
        {L"#107",
         {IDOK, IDCANCEL, IDC_PERMISSION_TEXT, IDC_PERMISSION_REQUEST, IDC_PERMISSION_ICON,
          IDC_PERMISSION_COUNTDOWN}},
        {L"#110", {IDC_DROP_TEXT}},
        {L"#132",
         {IDOK, IDCANCEL, IDC_CONNECT_USE_PROXY, IDC_CONNECT_USE_PROXY_SECRET, IDC_CONNECT_PROXY_SECRET,
          IDC_CONNECT_HOST, IDC_CONNECT_PORT, IDC_CONNECT_DEFAULT_PORTS, IDC_CONNECT_PROXY_HOST,
          IDC_CONNECT_PROXY_PORT}},
        {L"#134", {IDOK, IDCANCEL, IDC_JOIN_INVITATION, IDC_JOIN_HELP, IDC_JOIN_HINT, IDC_JOIN_BANNER}},
        {L"#136", {IDCANCEL, IDC_PROGRESS_BAR}},
        {L"#137",
         {IDYES, IDNO, IDC_VALIDATE_SHOW, IDC_VALIDATE_HELP, IDC_VALIDATE_BANNER, IDC_VALIDATE_REMEMBER,
          IDC_VALIDATE_NAME}},
        {L"#115", {IDCANCEL, 4,    5,    8,    10,   12,   1006, 1007, 1008, 1009, 1010,
                   1011,     1012, 1015, 1016, 1017, 1018, 1019, 1022, 1023, 1024}}};
    const ModuleTexts texts = ReadModule(m_module.get());
    for (const auto& [dialog, ids] : expected)
    {
        ASSERT_TRUE(texts.controlsOfDialog.contains(dialog));
        for (const int nId : ids)
        {
            EXPECT_EQ(std::ranges::count(texts.controlsOfDialog.at(dialog), nId), 1) << nId;
        }
    }
}

TEST_P(LanguageModule, OffersTheCommandsOfBothMenusEachOnce)
{
    const std::multiset<UINT> both = {
        ID_TRAY_SHOW_CONNECTED, ID_TRAY_DISCONNECT_ALL, ID_TRAY_JOIN_SESSION, ID_TRAY_LANGUAGE_EN,
        ID_TRAY_LANGUAGE_FR,    ID_TRAY_LANGUAGE_DE,    ID_TRAY_ABOUT,        ID_TRAY_EXIT};
    std::multiset<UINT> resident = both;
    resident.insert({ID_TRAY_CREATE_INVITATION, ID_TRAY_CONNECT_TO_CLIENT, ID_TRAY_SETTINGS});
    for (const auto& [uMenu, expected] : {std::pair{IDM_TRAY, resident}, std::pair{IDM_TRAY_ONE_TIME, both}})
    {
        const CMenu hMenu(LoadMenuW(m_module.get(), MAKEINTRESOURCEW(uMenu)));
        std::multiset<UINT> commands;
        ForEachMenu(GetSubMenu(hMenu.get(), 0), [&commands](const std::vector<MENU_ITEM>& items) {
            for (const MENU_ITEM& item : items)
            {
                if (item.uCommand != 0)
                {
                    commands.insert(item.uCommand);
                }
            }
        });
        EXPECT_EQ(commands, expected) << uMenu;
    }
}

TEST_P(LanguageModule, HasAShortcutKeyForEveryMenuItemAndNoneTwice)
{
    for (const int nMenu : {IDM_TRAY, IDM_TRAY_ONE_TIME})
    {
        const CMenu hMenu(LoadMenuW(m_module.get(), MAKEINTRESOURCEW(nMenu)));
        ForEachMenu(GetSubMenu(hMenu.get(), 0), [](const std::vector<MENU_ITEM>& items) {
            std::set<wchar_t> keys;
            for (const MENU_ITEM& item : items)
            {
                EXPECT_TRUE(item.chKey != L'\0' && keys.insert(item.chKey).second) << item.uCommand;
            }
        });
    }
}

TEST_P(LanguageModule, HasNoShortcutKeyTwiceInADialog)
{
    for (const std::wstring& name : NamesOfType(m_module.get(), RT_DIALOG))
    {
        const CWindow hDialog = MakeDialog(m_module.get(), name.c_str());
        ASSERT_TRUE(hDialog);
        std::set<wchar_t> keys;
        for (const HWND hControl : ControlsOf(hDialog.get()))
        {
            const wchar_t chKey = ShortcutKey(hControl);
            EXPECT_TRUE(chKey == L'\0' || keys.insert(chKey).second)
                << ResourceName(name.c_str()) << " " << GetDlgCtrlID(hControl);
        }
    }
}

TEST_P(LanguageModule, GivesEveryTextOfADialogRoomToSpare)
{
    for (const std::wstring& name : NamesOfType(m_module.get(), RT_DIALOG))
    {
        const CWindow hDialog = MakeDialog(m_module.get(), name.c_str());
        ASSERT_TRUE(hDialog);
        for (const HWND hControl : ControlsOf(hDialog.get()))
        {
            EXPECT_TRUE(HasRoomToSpare(hControl))
                << ResourceName(name.c_str()) << " " << GetDlgCtrlID(hControl);
        }
    }
}

TEST_P(LanguageModule, KeepsItsDialogsControlsInsideAndApart)
{
    for (const std::wstring& name : NamesOfType(m_module.get(), RT_DIALOG))
    {
        const CWindow hDialog = MakeDialog(m_module.get(), name.c_str());
        RECT client = {};
        GetClientRect(hDialog.get(), &client);
        const std::vector<HWND> controls = ControlsOf(hDialog.get());
        for (size_t nFirst = 0; nFirst < controls.size(); ++nFirst)
        {
            const RECT first = PlaceInDialog(hDialog.get(), controls[nFirst]);
            // The popup's button hangs below the edge: the form that shows it makes room.
            const bool bHangs = GetDlgCtrlID(controls[nFirst]) == IDC_NOTIFY_DISCONNECT;
            EXPECT_TRUE(first.left > 0 && first.top > 0 && first.right < client.right &&
                        (bHangs ? first.top >= client.bottom : first.bottom < client.bottom))
                << ResourceName(name.c_str()) << " " << GetDlgCtrlID(controls[nFirst]);
            for (size_t nSecond = nFirst + 1; nSecond < controls.size(); ++nSecond)
            {
                const RECT second = PlaceInDialog(hDialog.get(), controls[nSecond]);
                RECT both = {};
                EXPECT_FALSE(IntersectRect(&both, &first, &second))
                    << ResourceName(name.c_str()) << " " << GetDlgCtrlID(controls[nFirst]) << " and "
                    << GetDlgCtrlID(controls[nSecond]);
            }
        }
    }
}

TEST_P(LanguageModule, HoldsEveryTrayIconInEverySize)
{
    const std::set<int> expected(std::begin(ICON_SIZES), std::end(ICON_SIZES));
    for (const unsigned uIcon : TRAY_ICONS)
    {
        EXPECT_EQ(IconSizes(m_module.get(), uIcon), expected) << uIcon;
        const HICON hIcon = LoadIconW(m_module.get(), MAKEINTRESOURCEW(uIcon));
        EXPECT_NE(hIcon, nullptr) << uIcon;
    }
}

TEST_P(LanguageModule, HasNoCodeToRunAndLoadsAsOrdinaryLibraryToo)
{
    const CModule mapped(LoadLibraryW(m_path.c_str()));
    ASSERT_TRUE(mapped) << GetLastError();
    const auto* pBase = reinterpret_cast<const std::byte*>(mapped.get());
    IMAGE_DOS_HEADER dos;
    std::memcpy(&dos, pBase, sizeof(dos));
    IMAGE_NT_HEADERS64 nt;
    std::memcpy(&nt, pBase + dos.e_lfanew, sizeof(nt));
    EXPECT_EQ(nt.OptionalHeader.AddressOfEntryPoint, 0u);
    EXPECT_NE(nt.FileHeader.Characteristics & IMAGE_FILE_DLL, 0);
    constexpr WORD HARDENED = IMAGE_DLLCHARACTERISTICS_DYNAMIC_BASE | IMAGE_DLLCHARACTERISTICS_NX_COMPAT |
                              IMAGE_DLLCHARACTERISTICS_HIGH_ENTROPY_VA;
    EXPECT_EQ(nt.OptionalHeader.DllCharacteristics & HARDENED, HARDENED);
}

// ---- The comparison itself, with data that must not pass.

using Lines = std::vector<std::wstring>;

ModuleTexts TwoStrings()
{
    return {{{L"#6", {L"#1"}}, {L"#14", {L"#7"}}}, {{1, L"%d of %s"}, {2, L"Close"}}, {}};
}

ModuleTexts TwoStringsTranslated()
{
    return {{{L"#6", {L"#1"}}, {L"#14", {L"#7"}}}, {{1, L"%d von %s"}, {2, L"Schließen"}}, {}};
}

TEST(LanguageModuleComparison, AcceptsAFaithfulTranslation)
{
    EXPECT_EQ(CompareModules(TwoStrings(), TwoStringsTranslated(), {}), Lines());
}

TEST(LanguageModuleComparison, ReportsAnIdThatOnlyOneSideHas)
{
    ModuleTexts other = TwoStringsTranslated();
    other.idsOfType[L"#14"] = {L"#7", L"#130"};
    EXPECT_EQ(CompareModules(TwoStrings(), other, {}), Lines{L"ids of type #14"});
    EXPECT_EQ(CompareModules(other, TwoStrings(), {1, 2}).front(), L"ids of type #14");
}

TEST(LanguageModuleComparison, ReportsATypeThatOnlyOneSideHas)
{
    ModuleTexts other = TwoStringsTranslated();
    other.idsOfType.erase(L"#14");
    other.idsOfType[L"#5"] = {L"#102"};
    EXPECT_EQ(CompareModules(TwoStrings(), other, {}), (Lines{L"ids of type #14", L"ids of type #5"}));
}

TEST(LanguageModuleComparison, ReportsADialogWhoseControlsDiffer)
{
    ModuleTexts reference = TwoStrings();
    reference.controlsOfDialog[L"#106"] = {1, 1005, 1005};
    ModuleTexts other = TwoStringsTranslated();
    other.controlsOfDialog[L"#106"] = {1, 1005};
    EXPECT_EQ(CompareModules(reference, other, {}), Lines{L"controls of dialog #106"});
    other.controlsOfDialog[L"#106"] = {1005, 1, 1005};
    EXPECT_EQ(CompareModules(reference, other, {}), Lines{L"controls of dialog #106"}) << "another order";
    other.controlsOfDialog.clear();
    EXPECT_EQ(CompareModules(reference, other, {}), Lines{L"controls of dialog #106"});
    other.controlsOfDialog = reference.controlsOfDialog;
    EXPECT_EQ(CompareModules(reference, other, {}), Lines());
}

TEST(LanguageModuleComparison, ReportsAStringThatIsMissingOrSuperfluous)
{
    ModuleTexts other = TwoStringsTranslated();
    other.strings.erase(2);
    other.strings[9] = L"Neu";
    EXPECT_EQ(CompareModules(TwoStrings(), other, {}), (Lines{L"string 2 missing", L"string 9 superfluous"}));
}

TEST(LanguageModuleComparison, ReportsArgumentsInAnotherOrderNumberOrType)
{
    for (const wchar_t* pszText :
         {L"%s: %d", L"%d", L"%d von %s%s", L"%u von %s", L"%ld von %s", L"%*d von %s"})
    {
        ModuleTexts other = TwoStringsTranslated();
        other.strings[1] = pszText;
        EXPECT_EQ(CompareModules(TwoStrings(), other, {}), Lines{L"string 1 takes other arguments"});
    }
}

TEST(LanguageModuleComparison, ReportsATextThatWasLeftInEnglish)
{
    ModuleTexts other = TwoStringsTranslated();
    other.strings[2] = L"Close";
    EXPECT_EQ(CompareModules(TwoStrings(), other, {}), Lines{L"string 2 untranslated"});
    EXPECT_EQ(CompareModules(TwoStrings(), other, {2}), Lines());
}

TEST(LanguageModuleComparison, ReportsATextThatIsNoLongerTheSameOnPurpose)
{
    EXPECT_EQ(CompareModules(TwoStrings(), TwoStringsTranslated(), {2}),
              Lines{L"string 2 listed as the same"});
}

TEST(FormatArguments, ReadsLengthsAndStarsAndSkipsFlagsAndPercentSigns)
{
    EXPECT_EQ(FormatArguments(L"100 %% of %5.2f and %-8ls at %I64u, %*.*d"),
              (Lines{L"f", L"ls", L"I64u", L"*", L"*", L"d"}));
    EXPECT_EQ(FormatArguments(L"nothing"), Lines());
}

TEST(FormatArguments, TellsASpecifierThatIsCutShort)
{
    EXPECT_EQ(FormatArguments(L"rate: 5%"), Lines{L"cut short"});
    EXPECT_NE(FormatArguments(L"rate: 5%"), FormatArguments(L"rate: 5%%"));
}

TEST(StringBlock, NumbersItsTextsFromTheBlocksFirstIdAndSkipsEmptyOnes)
{
    const wchar_t block[] = {0, 2, L'a', L'b', 0, 1, L'c'};
    EXPECT_EQ(ParseStringBlock(2, block), (std::map<unsigned, std::wstring>{{17, L"ab"}, {19, L"c"}}));
}

TEST(StringBlock, KeepsToItsBoundsWhenACountRunsPastTheEnd)
{
    const wchar_t block[] = {1, L'a', 5, L'b'};
    EXPECT_EQ(ParseStringBlock(1, block), (std::map<unsigned, std::wstring>{{0, L"a"}}));
    EXPECT_TRUE(ParseStringBlock(1, {}).empty());
}
} // namespace
