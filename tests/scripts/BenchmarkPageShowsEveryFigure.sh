#!/usr/bin/env bash
# The page is held against the figures that the program can print; then the block of figures is written anew, in a
# copy, out of results that were made up for it.
set -euo pipefail
cd "$(dirname "$0")/../.."
# shellcheck source=scripts/lib/common.sh
. scripts/lib/common.sh
# shellcheck source=scripts/lib/figures.sh
. scripts/lib/figures.sh
PAGE=docs/benchmarks.md
folder=$(mktemp --directory)
trap 'rm -rf "$folder"' EXIT

scripts/lib/with-desktop wine "$TKDAST_BUILD/tests/benchmarks.exe" --figures | tr -d '\r' >"$folder/list"
[ -s "$folder/list" ]
cut -f 2 "$folder/list" >"$folder/figures"

# The page's figures are the program's, and the parts that it describes are, too.
figures_on_page "$PAGE" >"$folder/shown"
diff "$folder/figures" "$folder/shown"
cut -f 1 "$folder/list" | uniq >"$folder/parts"
sed -n '/^## What is measured/,/^## Last/ s/^\*\*\([a-z]*\)\*\*: .*/\1/p' "$PAGE" | sort >"$folder/described"
diff <(sort "$folder/parts") "$folder/described"
names=$(paste -s -d '|' "$folder/parts")
grep -q -F "scripts/bench [$names]..." scripts/bench
grep -q -F "only these: ${names//|/, }" "$PAGE"

# A block that is written has what the results have, and nothing else of the page changes.
cp "$PAGE" "$folder/page.md"
{
    printf '%-54s %12s %12s %-9s %6s  %-8s %s\n' figure measured reference unit ratio limit verdict
    printf '%-54s %12s %12s %-9s %6s  %-8s %s\n' 'first, of two' 2.000 1.000 ms 2.000 '<= 3.00' holds
    printf '%-54s %12s %12s %-9s %6s  %-8s %s\n' 'second' 2.000 1.000 ms 2.000 '-' 'no limit'
    echo 'machine: of paper'
} >"$folder/results"
write_figures "$folder/page.md" 2000-01-01 "$folder/results"
[ "$(figures_on_page "$folder/page.md")" = $'first, of two\nsecond' ]
grep -q -x 'Measured on 2000-01-01\.' "$folder/page.md"
grep -q -x '    machine: of paper' "$folder/page.md"
outside() {
    sed "\\|^$FIGURES_BEGIN\$|,\\|^$FIGURES_END\$|d" "$1"
}
diff <(outside "$PAGE") <(outside "$folder/page.md")

# A page without a place for them is left alone.
sed -i "\\|^$FIGURES_END\$|d" "$folder/page.md"
cp "$folder/page.md" "$folder/before.md"
if (write_figures "$folder/page.md" 2000-01-01 "$folder/results" 2>"$folder/said"); then
    exit 1
fi
cmp "$folder/page.md" "$folder/before.md"
