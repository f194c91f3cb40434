#!/usr/bin/env bash
# A few rounds are enough to see that the soak still plays and counts; whether they stay within the limits of
# ten thousand is not asked.
set -euo pipefail
cd "$(dirname "$0")/../.."
TKDAST_SOAK_RESULTS=$(mktemp --directory)
export TKDAST_SOAK_RESULTS
trap 'rm -rf "$TKDAST_SOAK_RESULTS"' EXIT
results=$TKDAST_SOAK_RESULTS/results.txt

if scripts/soak none; then
    echo "there is nothing of that name to soak"
    exit 1
fi
scripts/soak 20 4 --seed 1 || echo "code $?"
cat "$results"
if grep FAILED "$results"; then
    exit 1
fi
for figure in 'sessions: '{'private memory',handles,threads} \
    'starts: '{processes,handles,windows,files,'log files',icons} \
    {window,lives}': '{'blocks on the heaps',"left by Wine's controls",'private memory without these',handles,threads,'GDI objects',windows,menus,icons}; do
    grep -q "^$figure" "$results"
done
grep -q -x '20 cycles, 4 starts, seed 1' "$results"
