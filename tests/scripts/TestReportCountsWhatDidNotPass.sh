#!/usr/bin/env bash
set -euo pipefail
cd "$(dirname "$0")/../.."
log=$(mktemp)
trap 'rm -f "$log"' EXIT

# counts STATUS EXPECTED: the counts for the log on standard input.
counts() {
    cat >"$log"
    local actual
    actual=$(scripts/lib/test-report program "$log" "$1" 2>/dev/null)
    if [ "$actual" != "$2" ]; then
        echo "expected '$2', got '$actual' for:" >&2
        cat "$log" >&2
        return 1
    fi
}

counts 0 '2 0' <<END
[==========] Running 2 tests from 1 test suite.
[ RUN      ] Window.Opens
[       OK ] Window.Opens (1 ms)
[ RUN      ] Names/Window.Closes/0
[       OK ] Names/Window.Closes/0 (1 ms)
[==========] 2 tests from 1 test suite ran. (2 ms total)
END
# The summary repeats the name of a test that failed.
counts 1 '1 1' <<END
[==========] Running 2 tests from 1 test suite.
[ RUN      ] Window.Opens
[       OK ] Window.Opens (1 ms)
[ RUN      ] Window.Closes
[  FAILED  ] Window.Closes (1 ms)
[==========] 2 tests from 1 test suite ran. (2 ms total)
[  FAILED  ] 1 test, listed below:
[  FAILED  ] Window.Closes
END
counts 0 '0 2' <<END
[==========] Running 1 test from 1 test suite.
[ RUN      ] Window.Opens
[  SKIPPED ] Window.Opens (0 ms)
[==========] 1 test from 1 test suite ran. (2 ms total)
  YOU HAVE 1 DISABLED TEST
END
# A crash: one test that began, one that never did.
counts 5 '1 2' <<END
[==========] Running 3 tests from 1 test suite.
[ RUN      ] Window.Opens
[       OK ] Window.Opens (1 ms)
[ RUN      ] Window.Closes
END
counts 124 '0 1' </dev/null
