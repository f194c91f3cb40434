#!/usr/bin/env bash
set -euo pipefail
cd "$(dirname "$0")/../.."
TMPDIR=$(mktemp --directory)
export TMPDIR
trap 'rm -rf "$TMPDIR"' EXIT

# The command says which process it is, as the outside sees it, by holding a file open.
mkfifo "$TMPDIR/alive"
scripts/lib/with-desktop sh -c 'echo started; exec sleep 600' >"$TMPDIR/alive" &
desktop=$!
exec 3<"$TMPDIR/alive"
read -r -t 120 line <&3
[ "$line" = started ]

kill -TERM "$desktop"
status=0
wait "$desktop" || status=$?
[ "$status" -eq 143 ]
# The other end is closed only when every process of the desktop is gone.
read -r -t 30 line <&3 && exit 1
[ "$?" -eq 1 ]
[ -z "$(find "$TMPDIR" -name 'kda-desktop.*')" ]
