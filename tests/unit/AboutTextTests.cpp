#include "dialogs/AboutText.h"

#include "Include/BoundedText.h"
#include "resources/resource.h"
#include "tests/unit/DialogHarness.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <string>

namespace
{
const std::wstring LINE_END = L"\r\n";

class AboutTextTest : public testing::Test
{
  protected:
    void SetUp() override
    {
        CopyText(m_addresses.szInfo53, L"i53");
        CopyText(m_addresses.szInfo54, L"i54");
        CopyText(m_addresses.szInfo55, L"i55");
        CopyText(m_addresses.szInfo56, L"i56");
        CopyText(m_addresses.szInfo57, L"i57");
        CopyText(m_addresses.szInfo58, L"i58");
        CopyText(m_addresses.szInfo59, L"i59");
        CopyText(m_addresses.szInfo60, L"i60");
        CopyText(m_addresses.szInfo61, L"i61");
        m_addresses.bInfoFlag117 = 1;
    }

    std::wstring Text(UINT uString) const { return m_language.Text(uString); }
    std::wstring Compose(bool bOneTime = false) const { return ComposeAboutText(m_addresses, bOneTime); }
    bool Holds(const std::wstring& text, UINT uString) const
    {
        return text.find(Text(uString)) != std::wstring::npos;
    }

    // What stands behind the lines about the service.
    std::wstring Rest() const
    {
        return Text(57) + LINE_END + L"i57" + LINE_END + Text(58) + LINE_END + L"i58" + LINE_END + Text(60) +
               LINE_END + L"i60" + LINE_END + Text(53) + L"i53" + LINE_END + Text(54) + L"i54" + LINE_END +
               Text(59) + L"i59" + LINE_END + Text(61) + L"i61" + LINE_END;
    }

    StagedLanguageModule m_language;
    MSG_TRAYICON_IP_ADDRESSES m_addresses = {};
};
} // namespace

TEST_F(AboutTextTest, AReadyServiceIsToldInOneLine)
{
    EXPECT_EQ(Compose(), Text(55) + L"i55" + LINE_END + Text(116) + Text(117) + LINE_END + Text(56) + L"i56" +
                             LINE_END + Rest());
}

TEST_F(AboutTextTest, AServiceThatIsNotReadyIsToldWithItsNetwork)
{
    m_addresses.bInfoFlag117 = 0;
    EXPECT_EQ(Compose(), Text(55) + L"i55" + LINE_END + Text(116) + Text(118) + LINE_END + Text(121) +
                             Text(120) + LINE_END + Text(56) + L"i56" + LINE_END + Rest());
    m_addresses.bInfoFlag119 = 3;
    EXPECT_NE(Compose().find(Text(121) + Text(119) + LINE_END), std::wstring::npos);
}

TEST_F(AboutTextTest, PermissionIsTalkedOfOnlyWhereItIsRequired)
{
    EXPECT_FALSE(Holds(Compose(), 89));
    m_addresses.bInfoFlag89 = 1;
    EXPECT_NE(Compose().find(Text(56) + L"i56" + LINE_END + Text(89) + LINE_END + Text(57)),
              std::wstring::npos);
}

TEST_F(AboutTextTest, AOneTimeSessionSaysNothingOfTheServicesReadiness)
{
    for (const DWORD bReady : {0U, 1U})
    {
        m_addresses.bInfoFlag117 = bReady;
        const std::wstring text = Compose(true);
        std::wstring expected = Text(55);
        expected.append(L"i55").append(LINE_END).append(Text(56)).append(L"i56").append(LINE_END);
        EXPECT_EQ(text, expected.append(Rest()));
        for (const UINT uString : {117U, 118U, 119U, 120U})
        {
            EXPECT_FALSE(Holds(text, uString)) << uString;
        }
    }
}

TEST_F(AboutTextTest, WithoutAddressesTheirLabelsStandAlone)
{
    m_addresses.szInfo57[0] = m_addresses.szInfo58[0] = m_addresses.szInfo60[0] = L'\0';
    EXPECT_NE(
        Compose().find(Text(57) + LINE_END + Text(58) + LINE_END + Text(60) + Text(62) + LINE_END + Text(53)),
        std::wstring::npos)
        << "not known stands on the label's line";
}

TEST_F(AboutTextTest, FormatsInTheServicesTextsAreShownAsTheyAre)
{
    CopyText(m_addresses.szInfo55, L"%s%d%n");
    CopyText(m_addresses.szInfo60, L"%1!s! %%");
    EXPECT_NE(Compose().find(Text(55) + L"%s%d%n" + LINE_END), std::wstring::npos);
    EXPECT_NE(Compose().find(LINE_END + L"%1!s! %%" + LINE_END), std::wstring::npos);
}

TEST_F(AboutTextTest, FieldsWithoutATerminatorEndAtTheirBoundsAndTheWholeAtIts)
{
    std::fill(std::begin(m_addresses.szInfo61), std::end(m_addresses.szInfo61), L'x');
    EXPECT_TRUE(Compose().ends_with(Text(61) + std::wstring(129, L'x') + LINE_END));
    std::fill(std::begin(m_addresses.szInfo55), std::end(m_addresses.szInfo55), L'y');
    EXPECT_TRUE(Compose().starts_with(Text(55) + std::wstring(1025, L'y') + LINE_END));
    std::fill(std::begin(m_addresses.szInfo57), std::end(m_addresses.szInfo57), L'z');
    EXPECT_EQ(Compose().size(), 2047U);
}

TEST_F(AboutTextTest, AnAnswerThatNeverCameIsShownAsEmptyLines)
{
    m_addresses = {};
    const std::wstring text = Compose();
    EXPECT_TRUE(Holds(text, 118));
    EXPECT_TRUE(Holds(text, 120));
    EXPECT_TRUE(Holds(text, 62));
}

TEST_F(AboutTextTest, TheVersionLineHoldsVersionWordSizeAndCopyright)
{
    const std::wstring text = ComposeVersionText(L"4.5.6.7", L"(c) Somebody");
    EXPECT_NE(text.find(L"4.5.6.7, 64 bit"), std::wstring::npos);
    EXPECT_TRUE(text.ends_with(L"(c) Somebody"));
    EXPECT_EQ(ComposeVersionText(L"4.5.6.7", L"") + L"(c) Somebody", text) << "nothing in between";
    EXPECT_EQ(ComposeVersionText(std::wstring(300, L'1'), L"x").size(), 259U);
    EXPECT_NE(ComposeVersionText(L"%s", L"").find(L"%s, 64 bit"), std::wstring::npos);
}

TEST(DotVersion, LosesBlanksAndTurnsCommasIntoPoints)
{
    EXPECT_EQ(DotVersion(L"4, 44, 0, 1"), L"4.44.0.1");
    EXPECT_EQ(DotVersion(L" 1.2 . 3"), L"1.2.3");
    EXPECT_EQ(DotVersion(L""), L"");
}
