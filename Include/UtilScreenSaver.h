#pragma once

/// Asks a screen saver that runs on a desktop of its own to close; without one nothing happens. Any thread.
void KillScreenSaver();
