#pragma once

#include "tests/soak/FlatSeries.h"

/// What all programs of the system hold, and the files of the user and of the machine's programs. The handles
/// of this program are left out: the service that it plays remembers every agent.
class SystemSeries
{
  public:
    void Sample();
    void Tell(Report& report);

  private:
    FlatSeries m_processes{"starts: processes of the system", "processes", Bound::NoMoreThanReference, 0};
    FlatSeries m_handles{"starts: handles of all other processes", "handles", Bound::RatioAtMost,
                         MOST_HANDLES};
    FlatSeries m_windows{"starts: windows of all processes", "windows", Bound::NoMoreThanReference, 0};
    FlatSeries m_files{"starts: files but the log's", "files", Bound::NoMoreThanReference, 0};
    FlatSeries m_logFiles{"starts: log files beyond those kept", "files", Bound::NoMoreThanReference, 0};

    // A program of the system may make a handle when it is first asked for something.
    static constexpr double MOST_HANDLES = 1.02;
};
