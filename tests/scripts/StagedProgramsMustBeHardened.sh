#!/usr/bin/env bash
set -euo pipefail
cd "$(dirname "$0")/../.."
folder=$(mktemp --directory)
trap 'rm -rf "$folder"' EXIT

# compile OPTION...: builds the smallest program there is, with these linker options.
compile() {
    echo 'int main() { return 0; }' | x86_64-w64-mingw32-g++-posix -x c++ -static "$@" -o "$folder/Small.exe" -
}
# refused TEXT: the check refuses the program and says why.
refused() {
    local report
    ! report=$(scripts/lib/check-binaries "$folder" 2>&1) || return 1
    grep -q -F "Small.exe: $1" <<<"$report"
}

compile -s
scripts/lib/check-binaries "$folder"
compile
refused 'still has its symbols'
compile -s -Wl,--disable-dynamicbase
refused 'has no dynamic base'
compile -s -Wl,--disable-nxcompat
refused 'may run data'
compile -s -Wl,--disable-high-entropy-va
refused 'has no high-entropy addresses'
compile -s -Wl,--image-base,0x400000
refused 'is based below 4 GB'

rm "$folder/Small.exe"
if scripts/lib/check-binaries "$folder" 2>/dev/null; then
    exit 1
fi
