#!/usr/bin/env bash
set -euo pipefail
cd "$(dirname "$0")/../.."
folder=$(mktemp --directory)
trap 'rm -rf "$folder"' EXIT

# describe FILE [SED-SCRIPT]: makes the object FILE of a version block, with its script changed so.
describe() {
    {
        printf '#include <windows.h>\n#define %s\n#define %s\n#define %s\n#define %s\n#define %s\n' \
            'VERSION_FILE_TYPE VFT_APP' 'VERSION_FILE_NAME "Small.exe"' 'VERSION_DESCRIPTION "Small"' \
            'VERSION_LANGUAGE 0x0409' 'VERSION_BLOCK "040904B0"'
        sed -e "${2:-}" resources/VersionBlock.rc
    } | x86_64-w64-mingw32-windres -c 65001 -I . -o "$1"
}
# compile OPTION...: builds the smallest program there is, with these linker options.
compile() {
    echo 'int main() { return 0; }' | x86_64-w64-mingw32-g++-posix -x c++ -static - -x none "$@" -o "$folder/Small.exe"
}
# refused TEXT: the check refuses the program and says why.
refused() {
    local report
    ! report=$(scripts/lib/check-binaries "$folder" 2>&1) || return 1
    grep -q -F "Small.exe: $1" <<<"$report"
}

version=$folder/version.o
other=$folder/other.o
describe "$version"
compile -s "$version"
scripts/lib/check-binaries "$folder"
compile "$version"
refused 'still has its symbols'
compile -s "$version" -Wl,--disable-dynamicbase
refused 'has no dynamic base'
compile -s "$version" -Wl,--disable-nxcompat
refused 'may run data'
compile -s "$version" -Wl,--disable-high-entropy-va
refused 'has no high-entropy addresses'
compile -s "$version" -Wl,--image-base,0x400000
refused 'is based below 4 GB'

compile -s
refused 'has no version'
describe "$other" 's/^FILEVERSION .*/FILEVERSION 1, 2, 3, 4/'
compile -s "$other"
refused 'has the file version 1.2.3.4 in place of'
describe "$other" 's/^PRODUCTVERSION .*/PRODUCTVERSION 1, 2, 3, 4/'
compile -s "$other"
refused 'has the product version 1.2.3.4 in place of'

rm "$folder/Small.exe"
if scripts/lib/check-binaries "$folder" 2>/dev/null; then
    exit 1
fi
