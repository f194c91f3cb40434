#include "drop/DropTarget.h"

#include "devservice/DroppedNames.h"
#include "drop/DroppedFiles.h"
#include "tests/unit/DropHarness.h"
#include "tray/TrayWindowMessages.h"

#include <gtest/gtest.h>
#include <ole2.h>

namespace
{
constexpr DWORD UNTOUCHED = 0x1234;

class DropTargetTest : public DropHarness
{
  protected:
    void SetUp() override
    {
        DropHarness::SetUp();
        m_pTarget = new CDropTarget(nullptr, Client());
    }

    void TearDown() override
    {
        m_pTarget->LetGo();
        DropHarness::TearDown();
    }

    HRESULT Enter(FakeFiles& files) { return m_pTarget->DragEnter(&files, MK_LBUTTON, {}, &m_dwEffect); }
    HRESULT Drop(FakeFiles& files) { return m_pTarget->Drop(&files, MK_LBUTTON, {}, &m_dwEffect); }

    CDropTarget* m_pTarget = nullptr;
    DWORD m_dwEffect = UNTOUCHED;
};
} // namespace

TEST_F(DropTargetTest, HasOleInitialisedOnItsThread)
{
    static int s_nCalls;
    s_nCalls = 0;
    const ImportHook hook(
        "ole32.dll", "OleInitialize", +[](void* pvReserved) -> HRESULT {
            EXPECT_EQ(pvReserved, nullptr);
            ++s_nCalls;
            return S_FALSE;
        });
    (new CDropTarget(nullptr, Client()))->LetGo();
    EXPECT_EQ(s_nCalls, 1);
}

TEST_F(DropTargetTest, IsADropTargetAndNothingElse)
{
    for (const IID* const pIid : {&IID_IUnknown, &IID_IDropTarget})
    {
        void* pvTarget = nullptr;
        EXPECT_EQ(m_pTarget->QueryInterface(*pIid, &pvTarget), S_OK);
        EXPECT_EQ(pvTarget, static_cast<IDropTarget*>(m_pTarget));
        EXPECT_EQ(m_pTarget->Release(), 0U);
    }
    void* pvOther = m_pTarget;
    EXPECT_EQ(m_pTarget->QueryInterface(IID_IDataObject, &pvOther), static_cast<HRESULT>(0x80004002));
    EXPECT_EQ(pvOther, nullptr);
}

TEST_F(DropTargetTest, CountsTheReferencesOfOthersFromZeroOn)
{
    EXPECT_EQ(m_pTarget->AddRef(), 1U);
    EXPECT_EQ(m_pTarget->AddRef(), 2U);
    EXPECT_EQ(m_pTarget->Release(), 1U);
    EXPECT_EQ(m_pTarget->Release(), 0U);
    EXPECT_EQ(m_pTarget->AddRef(), 1U) << "its window still holds it";
    m_pTarget->Release();
}

TEST_F(DropTargetTest, OutlivesItsWindowWhileSomebodyHoldsIt)
{
    CDropTarget* const pTarget = new CDropTarget(nullptr, Client());
    pTarget->AddRef();
    pTarget->AddRef();
    pTarget->LetGo();
    EXPECT_EQ(pTarget->Release(), 1U);
    EXPECT_EQ(pTarget->Release(), 0U);
}

TEST_F(DropTargetTest, AsksForAFormatOfItsOwnAndTakesWhateverIsNoError)
{
    FakeFiles files({L"C:\\a"});
    for (const auto& [hResult, dwEffect] :
         {std::pair<HRESULT, DWORD>{S_OK, 1}, {S_FALSE, 1}, {DV_E_FORMATETC, 0}, {E_FAIL, 0}})
    {
        files.m_hQueryResult = hResult;
        EXPECT_EQ(Enter(files), S_OK);
        EXPECT_EQ(m_dwEffect, dwEffect) << hResult;
        m_dwEffect = UNTOUCHED;
        EXPECT_EQ(m_pTarget->DragOver(MK_LBUTTON, {}, &m_dwEffect), S_OK);
        EXPECT_EQ(m_dwEffect, dwEffect) << hResult;
    }
    EXPECT_EQ(files.m_queried.cfFormat, 1);
    EXPECT_EQ(files.m_queried.tymed, 2U);
    EXPECT_EQ(files.m_queried.dwAspect, static_cast<DWORD>(DVASPECT_CONTENT));
    EXPECT_EQ(files.m_queried.lindex, -1);
    EXPECT_EQ(files.m_queried.ptd, nullptr);
}

TEST_F(DropTargetTest, ARefusedDragCannotBeDropped)
{
    PrepareService();
    FakeFiles files({L"C:\\a"});
    EXPECT_EQ(Drop(files), E_INVALIDARG) << "nothing has come in";
    files.m_hQueryResult = DV_E_FORMATETC;
    Enter(files);
    m_dwEffect = UNTOUCHED;
    EXPECT_EQ(Drop(files), E_INVALIDARG);
    EXPECT_EQ(m_dwEffect, UNTOUCHED);
    EXPECT_EQ(files.m_read.cfFormat, 0) << "the source isn't asked";
    EXPECT_FALSE(WasTold());
}

TEST_F(DropTargetTest, ADragThatHasLeftCannotBeDropped)
{
    FakeFiles files({L"C:\\a"});
    Enter(files);
    EXPECT_EQ(m_pTarget->DragLeave(), S_OK);
    EXPECT_EQ(m_pTarget->DragOver(MK_LBUTTON, {}, &m_dwEffect), S_OK);
    EXPECT_EQ(m_dwEffect, 0U);
    EXPECT_EQ(Drop(files), E_INVALIDARG);
}

TEST_F(DropTargetTest, ADropIsReadAsAListOfFilesWhichStaysTheSources)
{
    PrepareService();
    FakeFiles files({L"C:\\a", L"C:\\b"});
    Enter(files);
    m_dwEffect = UNTOUCHED;
    EXPECT_EQ(Drop(files), S_OK);
    EXPECT_EQ(m_dwEffect, 1U);
    EXPECT_EQ(files.m_read.cfFormat, CF_HDROP);
    EXPECT_EQ(files.m_read.tymed, static_cast<DWORD>(TYMED_HGLOBAL));
    EXPECT_EQ(files.m_read.lindex, -1);
    EXPECT_NE(GlobalSize(files.m_hList), 0U) << "not freed";
    EXPECT_EQ(ReadDroppedEntries(5), (Names{L"C:\\a", L"C:\\b"}));
    EXPECT_TRUE(WasTold());
}

TEST_F(DropTargetTest, ASourceThatFailsHasItsCodeReported)
{
    PrepareService();
    FakeFiles files({L"C:\\a"});
    Enter(files);
    files.m_hGetResult = STG_E_MEDIUMFULL;
    EXPECT_EQ(Drop(files), STG_E_MEDIUMFULL);
    EXPECT_EQ(m_dwEffect, 1U);
    files.m_hGetResult = S_OK;
    files.m_dwMedium = TYMED_ISTREAM;
    EXPECT_EQ(Drop(files), DV_E_TYMED) << "no list of files";
    EXPECT_FALSE(WasTold());
}

TEST_F(DropTargetTest, AFolderThatIsMissingSendsTheNamesOverTheClipboard)
{
    MakeEvent();
    FakeFiles files({L"C:\\a", L"C:\\b"});
    Enter(files);
    EXPECT_EQ(Drop(files), S_OK);
    EXPECT_EQ(ReadDroppedClipboard(), (Names{L"C:\\a", L"C:\\b"}));
    EXPECT_TRUE(WasTold());
}

TEST_F(DropTargetTest, NamesThatWentIntoTheFileStayOffTheClipboard)
{
    PrepareService();
    FakeFiles files({L"C:\\a"});
    Enter(files);
    EXPECT_EQ(Drop(files), S_OK);
    m_hEvent.reset();
    EXPECT_EQ(Drop(files), S_OK) << "withdrawn from the file";
    EXPECT_TRUE(ReadDroppedClipboard().empty());
}

TEST_F(DropTargetTest, AWindowThatGoesWhileTheSourceIsAskedTakesNothingAlong)
{
    PrepareService();
    const HWND hDrop = OpenDrop();
    ASSERT_TRUE(IsWindow(hDrop));
    // As OLE finds a window's target, and holds it during its call.
    auto* const pTarget = static_cast<IDropTarget*>(GetPropW(hDrop, L"OleDropTargetInterface"));
    if (pTarget == nullptr)
    {
        GTEST_SKIP() << "this system keeps targets elsewhere";
    }
    pTarget->AddRef();
    FakeFiles files({L"C:\\a"});
    files.m_whileAsked = [hDrop] { SendMessageW(hDrop, WM_SFT_DROP_WINDOW, 0, 0); };
    EXPECT_EQ(pTarget->DragEnter(&files, MK_LBUTTON, {}, &m_dwEffect), S_OK);
    EXPECT_EQ(pTarget->Drop(&files, MK_LBUTTON, {}, &m_dwEffect), S_OK);
    EXPECT_FALSE(IsWindow(hDrop));
    EXPECT_EQ(ReadDroppedEntries(5), Names{L"C:\\a"});
    EXPECT_EQ(pTarget->Release(), 0U);
}
