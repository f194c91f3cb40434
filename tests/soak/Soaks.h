#pragma once

class Report;

/// How often what is repeated, and from which seed.
struct SOAK_RUN
{
    unsigned int uCycles; // a viewer who comes and goes
    unsigned int uStarts; // an agent that comes and goes
    unsigned int uSeed;
};

/// Viewers who come and go at one staged agent: its memory, handles and threads.
void SoakSessions(Report& report, const SOAK_RUN& run);

/// The same at the agent's window in this process, where its GDI and USER objects can be counted, too.
void SoakWindow(Report& report, const SOAK_RUN& run);

/// Staged agents that are started, visited and ended: what they leave in the system.
void SoakStarts(Report& report, const SOAK_RUN& run);

/// Whole lives of the agent's window in this process: what they leave in it.
void SoakLives(Report& report, const SOAK_RUN& run);
