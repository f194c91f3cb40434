#pragma once

/// Takes in what is logged from now on, so that each line is composed as ever and none is shown. Once, at the
/// program's start.
void SilenceLog();
