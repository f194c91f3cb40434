// Numbers of everything a language module holds. The resource scripts, the agent and the tests include this
// file, so it has nothing in it but definitions. A number is part of the agreement between the agent and each
// translation: once published it keeps its meaning.
#pragma once

// Icons. Each is there in 16, 20, 24, 32, 40, 48, 64, 128 and 256 pixels.
#define IDI_TRAY_IDLE 7            // nobody is connected; also the icon of the agent's window
#define IDI_TRAY_PERMISSION 107    // nobody is connected, and the person at the desktop has to consent first
#define IDI_TRAY_ACTIVE 130        // somebody is connected
#define IDI_TRAY_RECONFIGURING 131 // the service is changing its configuration

// Strings.
#define IDS_CONNECT_FAILED 25        // the service runs but is out of reach; the reason follows on a new line
#define IDS_SERVICE_STOPPED 26       // the service is installed but doesn't run
#define IDS_SERVICE_NOT_INSTALLED 27 // there is no service on this machine
#define IDS_ONE_TIME_BALLOON 69      // balloon of a one-time agent whose icon has just appeared
#define IDS_TIP_ONE_TIME 75          // in front of the tip of a one-time agent
#define IDS_TIP_PERMISSION 89        // a line in front of the tip while consent is asked for; also in About

// Of the programs themselves, not of the language modules: what the shell shows for the file.
#define IDI_PROGRAM 1
