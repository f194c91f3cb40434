#!/usr/bin/env bash
set -euo pipefail
cd "$(dirname "$0")/../.."
# shellcheck source=scripts/lib/common.sh
. scripts/lib/common.sh
# shellcheck source=scripts/lib/deps.sh
. scripts/lib/deps.sh
work=$(mktemp --directory)
trap 'rm -rf "$work"' EXIT
mkdir "$work/log"

# shellcheck disable=SC2317  # called by fetch_source
fetch_candidate() {
    echo "E: Failed to fetch http://mirror.invalid/debian/pool/x  404" >&2
    return 1
}
TKDAST_SOURCES[log4cxx]='forky:1.5.0-1 sid:'
status=0
report=$(fetch_source "$work" log4cxx 2>&1) || status=$?

[ "$status" -ne 0 ]
grep -q -F 'failed: source package log4cxx 1.5.0-1 of forky/main' <<<"$report"
grep -q -F 'failed: source package log4cxx (newest) of sid/main' <<<"$report"
grep -q -F 'no place had the sources of log4cxx' <<<"$report"
grep -q -F '404' <<<"$report"
if grep -q -F 'mirror.invalid' <<<"$report"; then
    exit 1
fi
