# shellcheck shell=bash
# Configures and builds the product. Needs common.sh and deps.sh.

# configure_product: brings build/release up to date with the lists of sources and with the cache.
configure_product() {
    ensure_deps
    under_lock "$TKDAST_ROOT/build/build.lock" configure_product_locked
}

configure_product_locked() {
    local log=$TKDAST_ROOT/build/configure.log
    local -a fresh=()
    # What was found in an older cache must not be mixed with what is in this one.
    if [ -e "$TKDAST_BUILD/CMakeCache.txt" ] &&
        ! grep -q -x -F "CMAKE_PREFIX_PATH:UNINITIALIZED=$TKDAST_DEPS" "$TKDAST_BUILD/CMakeCache.txt"; then
        fresh=(--fresh)
    fi
    if ! (cd "$TKDAST_ROOT" && cmake --preset mingw-release "${fresh[@]}" -DCMAKE_PREFIX_PATH="$TKDAST_DEPS" \
        -DTKDAST_STAGE_DIR="$TKDAST_STAGE" -DTKDAST_SYMBOLS_DIR="$TKDAST_SYMBOLS") >"$log" 2>&1; then
        cat "$log" >&2
        die "CMake could not configure the build."
    fi
}

# build_product: brings build/release and build/stage up to date.
build_product() {
    configure_product
    say "Building into build/release"
    under_lock "$TKDAST_ROOT/build/build.lock" cmake --build "$TKDAST_BUILD"
}

# languages: the codes of the language modules, a line each, English first.
languages() {
    sed -n -E 's/^add_language_module\(([a-z]+).*/\1/p' "$TKDAST_ROOT/resources/CMakeLists.txt"
}

# check_stage: sees to it that what is staged is whole and hardened.
check_stage() {
    local file missing=0
    local -a translations
    mapfile -t translations < <(languages | sed -e 1d -e 's|.*|Localization/&/TKDASTRES.dll|')
    for file in TKDAST.exe TKDASTRES.dll "${translations[@]}" TKDAST.Logging.xml TKDAS.exe \
        TKDAChat.dll TKDASET.DLL TKDASTEvents.dll; do
        if [ ! -e "$TKDAST_STAGE/$file" ]; then
            warn "build/stage/$file was not built"
            missing=1
        fi
    done
    [ "$missing" -eq 0 ] || die "the staged tree is not whole."
    "$TKDAST_ROOT/scripts/lib/check-binaries" "$TKDAST_STAGE" ||
        die "the staged programs are not as they must be."
}
