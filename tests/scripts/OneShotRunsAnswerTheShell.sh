#!/usr/bin/env bash
# Logging off ends every program of a desktop, so each run has one of its own.
set -euo pipefail
cd "$(dirname "$0")/../.."
answers=$(mktemp --directory)
trap 'rm -rf "$answers"' EXIT

# Starts a bystander, runs the agent, and writes down the low eight bits of its exit code and whether the
# bystander is still there. That one says "ready" as soon as it has its window.
# shellcheck disable=SC2016  # the inner shell expands these
run_beside_a_bystander='
mkfifo "$1/bystander"
wine "$TKDAST_RUN/DesktopKeeper.exe" >"$1/bystander" &
read -r line <"$1/bystander"
status=0
timeout 60 wine build/stage/TKDAST.exe "$2" || status=$?
timeout "$3" tail --pid=$! -f /dev/null && bystander=gone || bystander=there
echo "$status $bystander" >"$1/answer"
'

# expect SWITCH ANSWER: the run answers that, and the bystander is there or gone.
expect() {
    local folder patience=3
    # What is to end may need a while on a busy machine; what is to stay is given a moment.
    [ "${2#* }" = there ] || patience=60
    folder=$(mktemp --directory "$answers/XXXXXX")
    # A desktop whose user has logged off has no answer of its own.
    scripts/lib/with-desktop bash -c "$run_beside_a_bystander" bash "$folder" "$1" "$patience" || true
    echo "$1: $(cat "$folder/answer")"
    [ "$(cat "$folder/answer")" = "$2" ]
}

expect -Logoff '1 gone'
expect -LogoffForce '1 gone'
expect -LockWorkstation '1 there'
# -44, without its upper 24 bits.
expect -ConsoleLock '212 there'
