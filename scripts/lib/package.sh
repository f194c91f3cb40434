# shellcheck shell=bash
# Makes the packages from the staged tree. Needs common.sh.

TKDAST_PACKAGE=$TKDAST_ROOT/build/package
TKDAST_SETUP_MODULE=$TKDAST_BUILD/packaging/setup/TKDASetup.dll

# product_version: the version that CMake took from the sources, as three numbers.
product_version() {
    sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$TKDAST_BUILD/CMakeCache.txt"
}

# source_date: the date of all that goes into a package, in seconds: that of the newest commit, unless
# somebody has set one. No archive knows a date before 1980.
source_date() {
    local date=${SOURCE_DATE_EPOCH:-}
    [ -n "$date" ] || date=$(git -C "$TKDAST_ROOT" log -1 --format=%ct 2>/dev/null) || date=315532800
    printf '%s\n' "$date"
}

# make_msi VERSION FILE: makes an installer of that version.
make_msi() {
    SOURCE_DATE_EPOCH=$(source_date) "$TKDAST_ROOT/scripts/lib/make-msi" "$TKDAST_STAGE" "$TKDAST_SETUP_MODULE" \
        "$1" "$2" || die "could not make $2."
}

# make_zip NAME FILE FOLDER=SOURCE...: makes an archive with one folder NAME, see scripts/lib/make-zip.
make_zip() {
    local name=$1 file=$2
    shift 2
    SOURCE_DATE_EPOCH=$(source_date) "$TKDAST_ROOT/scripts/lib/make-zip" "$file" "$name" "$@" ||
        die "could not make $file."
}

# make_packages: makes build/package anew, with all packages of the version in hand. The policies come with the
# archive and by themselves: the installer has no business in the folder that Windows has for them.
make_packages() {
    local name
    name=kestrel-desk-assist-$(product_version)
    rm -rf "$TKDAST_PACKAGE"
    mkdir -p "$TKDAST_PACKAGE"
    "$TKDAST_ROOT/scripts/lib/check-binaries" "$(dirname "$TKDAST_SETUP_MODULE")" ||
        die "the installer's own module is not as it must be."
    make_msi "$(product_version)" "$TKDAST_PACKAGE/$name-x64.msi"
    make_zip "$name" "$TKDAST_PACKAGE/$name-x64.zip" ".=$TKDAST_STAGE" ".=$TKDAST_ROOT/packaging/try-it.cmd" \
        "policy=$TKDAST_ROOT/packaging/policy"
    make_zip "$name-policy" "$TKDAST_PACKAGE/$name-policy.zip" ".=$TKDAST_ROOT/packaging/policy"
}
