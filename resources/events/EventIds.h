// Numbers of the entries that the agent writes to the Windows event log. The module of event texts and the
// agent include this file, so it has nothing in it but definitions. Entries are kept for years: a number
// never changes its meaning.
#pragma once

#define EVENT_PLAIN_TEXT 0L // one string, which is the whole text
