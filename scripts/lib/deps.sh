# shellcheck shell=bash
# The libraries of the product, built for Windows from Debian's source packages, once for each
# combination of versions, flags and compiler, into a cache outside the checkout.
# Needs common.sh.

TKDAST_TRIPLET=x86_64-w64-mingw32
TKDAST_TOOLCHAIN=$TKDAST_ROOT/cmake/mingw-w64-x86_64.cmake
TKDAST_DEPS_FLAGS='-O2 -fstack-protector-strong'

# Where each source package is looked for, in this order: suite and version ("" takes the suite's
# newest). log4cxx 1.5 is younger than Debian 12.
declare -A TKDAST_SOURCES=(
    [expat]='bookworm: trixie:'
    [apr]='bookworm: trixie:'
    [apr-util]='bookworm: trixie:'
    [log4cxx]='forky:1.5.0-1 forky: sid:'
    [benchmark]='bookworm: trixie:'
)

# deps_key: names the cache by everything that the result depends on.
deps_key() {
    {
        cat "$TKDAST_ROOT/scripts/lib/deps.sh" "$TKDAST_TOOLCHAIN"
        "$TKDAST_TRIPLET-g++-posix" -dumpfullversion
        dpkg-query --show g++-mingw-w64-x86-64-posix googletest libboost1.74-dev
    } | sha256sum | cut -c1-16
}

# archive_address: the address of the Debian archive that this machine uses already.
archive_address() {
    local address
    # shellcheck disable=SC2016  # apt fills these in
    address=$(apt-get indextargets --format '$(REPO_URI) $(CODENAME) $(RELEASE) $(ORIGIN) $(COMPONENT)' \
        'Created-By: Packages' | awk '($2 == "bookworm" || $3 == "bookworm") && $NF == "main" { print $1; exit }')
    [ -n "$address" ] || die "this machine's apt sources name no Debian 12 (bookworm main) archive."
    printf '%s\n' "$address"
}

# suite_apt DIR SUITE TOOL ARGUMENT...: runs an apt tool that sees only the sources of one suite. All
# its state lives below DIR, so that the machine's own stays as it is.
suite_apt() {
    local dir=$1/$2 suite=$2 tool=$3
    shift 3
    if [ ! -e "$dir/sources.list" ]; then
        mkdir -p "$dir/lists/partial" "$dir/cache/archives/partial"
        printf 'deb-src [signed-by=%s] %s %s main\n' /usr/share/keyrings/debian-archive-keyring.gpg \
            "$(archive_address)" "$suite" >"$dir/sources.list"
    fi
    "$tool" -o Dir::Etc::SourceList="$dir/sources.list" -o Dir::Etc::SourceParts=/dev/null \
        -o Dir::State::Lists="$dir/lists" -o Dir::Cache="$dir/cache" -o APT::Sandbox::User=root \
        -o Acquire::Retries=3 -o Dpkg::Use-Pty=0 "$@"
}

# suite_ready DIR SUITE: fetches the list of a suite's source packages, once.
suite_ready() {
    [ -e "$1/$2/ready" ] && return
    suite_apt "$1" "$2" apt-get -qq --error-on=any update && touch "$1/$2/ready"
}

# fetch_candidate DIR PACKAGE SUITE VERSION: downloads one source package into the current folder; apt
# checks the archive's signature.
fetch_candidate() {
    local wanted=$2
    [ -z "$4" ] || wanted+="=$4"
    suite_ready "$1" "$3" || return 1
    # log4cxx is taken as its authors wrote it: the archive lacks some of its packaging files.
    if [ "$2" = log4cxx ]; then
        suite_apt "$1" "$3" apt-get -qq source --download-only --tar-only "$wanted"
    else
        suite_apt "$1" "$3" apt-get -qq source --download-only "$wanted"
    fi
}

# unpack_source FOLDER: unpacks what the current folder holds into FOLDER.
unpack_source() {
    local -a dsc tarball
    mapfile -t dsc < <(compgen -G '*.dsc')
    if [ "${#dsc[@]}" -gt 0 ]; then
        dpkg-source --no-check --extract "${dsc[0]}" "$1"
    else
        mapfile -t tarball < <(compgen -G '*.orig.tar.*')
        mkdir "$1" && tar --extract --file "${tarball[0]}" --directory "$1" --strip-components 1
    fi
}

# fetch_source WORK PACKAGE: leaves the package's sources in WORK/src/PACKAGE, from the first place
# that has them.
fetch_source() {
    local work=$1 package=$2 candidate suite version place log=$1/log/fetch-$2.log
    for candidate in ${TKDAST_SOURCES[$package]}; do
        suite=${candidate%%:*} version=${candidate#*:}
        place="source package $package ${version:-(newest)} of $suite/main"
        rm -rf "$work/fetch/$package"
        mkdir -p "$work/fetch/$package" "$work/src"
        if (cd "$work/fetch/$package" &&
            fetch_candidate "$work/apt" "$package" "$suite" "$version" &&
            unpack_source "$work/src/$package") >"$log" 2>&1 </dev/null; then
            say "  fetched $place"
            return
        fi
        warn "  failed: $place"
        without_host <"$log" | tail -n 3 | sed 's/^/    /' >&2
        rm -rf "$work/src/$package"
        warn "  trying the next place, if there is one"
    done
    die "no place had the sources of $package; tried, as suite:version: ${TKDAST_SOURCES[$package]}"
}

# deps_cmake WORK PREFIX NAME SOURCE ARGUMENT...: configures one library for Windows.
deps_cmake() {
    local work=$1 prefix=$2 name=$3 source=$4
    shift 4
    cmake -G Ninja -S "$source" -B "$work/obj/$name" -DCMAKE_TOOLCHAIN_FILE="$TKDAST_TOOLCHAIN" \
        -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX="$prefix" -DCMAKE_PREFIX_PATH="$prefix" \
        -DCMAKE_C_FLAGS_RELEASE="$TKDAST_DEPS_FLAGS -DNDEBUG" \
        -DCMAKE_CXX_FLAGS_RELEASE="$TKDAST_DEPS_FLAGS -DNDEBUG" \
        -DBUILD_SHARED_LIBS=OFF -DCMAKE_POLICY_DEFAULT_CMP0074=NEW "$@"
}

build_expat() {
    local work=$1 prefix=$2
    deps_cmake "$work" "$prefix" expat "$work/src/expat/expat" -DEXPAT_SHARED_LIBS=OFF \
        -DEXPAT_BUILD_TOOLS=OFF -DEXPAT_BUILD_EXAMPLES=OFF -DEXPAT_BUILD_TESTS=OFF \
        -DEXPAT_BUILD_DOCS=OFF -DEXPAT_BUILD_PKGCONFIG=OFF || return
    # Debian's patches test the value of XML_DTD, which the generated header leaves empty.
    sed -i -E 's/^#define XML_DTD *$/#define XML_DTD 1/' "$work/obj/expat/expat_config.h" &&
        ninja -C "$work/obj/expat" install
}

# APR and APR-util expect these headers to come with <windows.h>, as they do elsewhere.
TKDAST_APR_FLAGS='-include winsock2.h -include windows.h -include mswsock.h -include ws2tcpip.h -include iphlpapi.h'
# APR's own test takes GCC for a Unix compiler and asks for a fallback that its Windows build leaves out;
# the Windows files have all atomic operations themselves.
TKDAST_APR_FLAGS+=' -DHAVE_ATOMIC_BUILTINS=1 -DHAVE_ATOMIC_BUILTINS64=1'

build_apr() {
    local work=$1 prefix=$2
    # The build runs this generator, so it has to be a program of the build machine.
    gcc -O1 -o "$work/gen_test_char" "$work/src/apr/tools/gen_test_char.c" || return
    sed -i "s#COMMAND \$<TARGET_FILE:gen_test_char>#COMMAND $work/gen_test_char#" \
        "$work/src/apr/CMakeLists.txt" &&
        deps_cmake "$work" "$prefix" apr "$work/src/apr" -DCMAKE_C_FLAGS="$TKDAST_APR_FLAGS" \
            -DINSTALL_PDB=OFF &&
        ninja -C "$work/obj/apr" test_char_header apr-1 || return
    install -D --mode 644 --target-directory "$prefix/include/apr-1" "$work"/src/apr/include/apr_*.h \
        "$work/obj/apr/apr.h" || return
    install -D --mode 644 --target-directory "$prefix/lib" "$work/obj/apr/libapr-1.a"
}

build_apr_util() {
    local work=$1 prefix=$2
    deps_cmake "$work" "$prefix" apr-util "$work/src/apr-util" \
        -DCMAKE_C_FLAGS="$TKDAST_APR_FLAGS -DXML_STATIC" -DINSTALL_PDB=OFF -DAPU_HAVE_ODBC=OFF \
        -DAPR_HAS_LDAP=OFF -DAPR_INCLUDE_DIR="$prefix/include/apr-1" -DAPR_LIBRARIES="$prefix/lib/libapr-1.a" &&
        ninja -C "$work/obj/apr-util" aprutil-1 || return
    install -D --mode 644 --target-directory "$prefix/include/apr-1" "$work"/src/apr-util/include/ap[ru]_*.h \
        "$work"/obj/apr-util/{apu.h,apr_ldap.h,apu_want.h} || return
    install -D --mode 644 --target-directory "$prefix/lib" "$work/obj/apr-util/libaprutil-1.a"
}

build_log4cxx() {
    local work=$1 prefix=$2
    # Its sources spell this header in the case of another SDK.
    mkdir -p "$work/case" && printf '#include <heapapi.h>\n' >"$work/case/Heapapi.h" || return
    deps_cmake "$work" "$prefix" log4cxx "$work/src/log4cxx" -DCMAKE_CXX_FLAGS="-isystem $work/case" \
        -DAPR_STATIC=ON -DAPU_STATIC=ON -DAPR_CONFIG_EXECUTABLE=NONE -DAPR_UTIL_CONFIG_EXECUTABLE=NONE \
        -DLOG4CXX_CHAR=utf-8 -DLOG4CXX_WCHAR_T=ON -DLOG4CXX_NETWORKING_SUPPORT=OFF \
        -DLOG4CXX_WITH_PKG_CONFIG=OFF -DBUILD_TESTING=OFF -DBUILD_EXAMPLES=OFF -DBUILD_SITE=OFF &&
        ninja -C "$work/obj/log4cxx" install
}

build_googletest() {
    local work=$1 prefix=$2
    deps_cmake "$work" "$prefix" googletest /usr/src/googletest -DCMAKE_CXX_FLAGS='-g1 -gdwarf-4' &&
        ninja -C "$work/obj/googletest" install
}

build_benchmark() {
    local work=$1 prefix=$2
    # 0.0.0 makes it take its version from its sources.
    deps_cmake "$work" "$prefix" benchmark "$work/src/benchmark" -DGIT_VERSION=0.0.0 \
        -DBENCHMARK_ENABLE_TESTING=OFF -DBENCHMARK_ENABLE_WERROR=OFF -DBENCHMARK_INSTALL_DOCS=OFF &&
        ninja -C "$work/obj/benchmark" install
}

# link_boost WORK PREFIX: only Boost's headers; the rest of /usr/include belongs to another system.
link_boost() {
    [ -e /usr/include/boost/version.hpp ] && mkdir -p "$2/include" &&
        ln -s /usr/include/boost "$2/include/boost"
}

# build_dep WORK NAME FUNCTION: builds one library and shows its log only when it fails.
build_dep() {
    local log=$1/log/$2.log
    say "  building $2"
    if ! "$3" "$1" "$1/prefix" >"$log" 2>&1 </dev/null; then
        tail -n 40 "$log" >&2
        die "$2 did not build."
    fi
}

# build_deps_locked PREFIX: fills PREFIX unless another run has done so in the meantime. The folder
# gets its name only when it is whole.
build_deps_locked() {
    local prefix=$1 work package
    in_cache "$prefix" && return
    say "Building the libraries for Windows into $prefix (about three minutes, once)"
    # What a killed run left behind; the lock says that nobody works there.
    rm -rf "$TKDAST_CACHE"/deps-work.*
    prune_cache deps
    work=$(mktemp --directory "$TKDAST_CACHE/deps-work.XXXXXX")
    # shellcheck disable=SC2064  # the folder of now is the one to remove
    trap "rm -rf '$work'" EXIT
    mkdir -p "$work/log" "$work/prefix"
    for package in expat apr apr-util log4cxx benchmark; do
        fetch_source "$work" "$package"
    done
    build_dep "$work" boost link_boost
    build_dep "$work" expat build_expat
    build_dep "$work" apr build_apr
    build_dep "$work" apr-util build_apr_util
    build_dep "$work" log4cxx build_log4cxx
    build_dep "$work" googletest build_googletest
    build_dep "$work" benchmark build_benchmark
    # Package descriptions name the libraries by absolute path, so they must name the later one.
    find "$work/prefix" -name '*.cmake' -exec sed -i "s#$work/prefix#$prefix#g" {} +
    mv -T "$work/prefix" "$prefix"
}

# ensure_deps: sees to it that the libraries are in the cache and sets TKDAST_DEPS to their folder.
ensure_deps() {
    TKDAST_DEPS=$TKDAST_CACHE/deps-$(deps_key)
    export TKDAST_DEPS
    in_cache "$TKDAST_DEPS" && return
    under_lock "$TKDAST_CACHE/deps.lock" build_deps_locked "$TKDAST_DEPS"
}
