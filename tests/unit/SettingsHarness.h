#pragma once

#include "tests/support/SettingsModule.h"
#include "tests/unit/DialogHarness.h"
#include "tests/unit/ModalScenario.h"
#include "tests/unit/SettingsRegistry.h"

#include <gtest/gtest.h>

#include <functional>

/// The staged settings module and a registry of the test's own, for tests of its dialog.
class SettingsHarness : public testing::Test
{
  protected:
    /// Shows the dialog by show, plays the scenario in it, and returns what show returned.
    template <typename Show>
    static auto Play(const std::function<void(HWND)>& scenario, const Show& show)
    {
        const ModalScenario modal([&scenario](HWND hDialog) {
            scenario(hDialog);
            PostMessageW(hDialog, WM_CLOSE, 0, 0); // where a check has failed halfway
        });
        const auto result = show();
        EXPECT_TRUE(modal.HasRun());
        PumpMessages();
        return result;
    }

    static void Click(HWND hDialog, int nControl) { SendDlgItemMessageW(hDialog, nControl, BM_CLICK, 0, 0); }
    static void Select(HWND hDialog, int nCombo, WPARAM wItem)
    {
        SendDlgItemMessageW(hDialog, nCombo, CB_SETCURSEL, wItem, 0);
    }

    const LoadedSettingsModule m_module;
    const SettingsRegistry m_registry;
};
