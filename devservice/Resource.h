#pragma once

// The script that --demo plays.
#define IDR_DEMO_STORY 1
