# shellcheck shell=bash
# The checks of the sources; each is one function that prints what is wrong and answers 0 or 1.
# Needs common.sh, deps.sh and product.sh.

# shellcheck disable=SC2034  # for whoever includes this file
TKDAST_CHECKS=(formatting clang_tidy cppcheck shell_scripts wording)

# sources PATTERN...: lists the files of the tree that match, tracked or new, one a line.
sources() {
    git -C "$TKDAST_ROOT" ls-files --cached --others --exclude-standard -- "$@" | while read -r file; do
        [ ! -f "$file" ] || printf '%s\n' "$file"
    done
}

check_formatting() {
    local -a files
    mapfile -t files < <(sources '*.cpp' '*.h')
    clang-format --dry-run -Werror "${files[@]}" || {
        warn "clang-format -i FILE sets a file right"
        return 1
    }
}

check_clang_tidy() {
    local -a files
    # The keeper of the test desktop is a program of its own, outside the build.
    mapfile -t files < <(sources '*.cpp' ':!scripts')
    scripts/lib/tidy "$TKDAST_BUILD" "$TKDAST_ROOT/build/lint" "${files[@]}"
}

check_cppcheck() {
    local -a files
    mapfile -t files < <(sources '*.cpp')
    # The headers of the system and of the libraries are known to cppcheck by its own descriptions.
    cppcheck --quiet --error-exitcode=1 -j "$(nproc)" --std=c++20 --language=c++ --platform=win64 \
        --library=windows --library=googletest --enable=warning,performance,portability --inline-suppr \
        --suppress=missingIncludeSystem --suppress=missingInclude \
        -I "$TKDAST_ROOT" -D_WIN32 -D_WIN64 -DUNICODE -D_UNICODE -D_WIN32_WINNT=0x0A00 \
        --template='{file}:{line}: {severity}: {message} [{id}]' "${files[@]}" || {
        warn "cppcheck ended with code $?"
        return 1
    }
}

check_shell_scripts() {
    local -a files
    mapfile -t files < <(sources '*.sh' 'scripts/*' '.ci/*' | while read -r file; do
        case $file in
        *.sh) printf '%s\n' "$file" ;;
        *) ! head -n 1 "$file" | grep -q -E '^#!.*\b(ba)?sh$' || printf '%s\n' "$file" ;;
        esac
    done)
    shellcheck --external-sources --source-path="$TKDAST_ROOT" "${files[@]}"
}

# check_wording: sources explain themselves. They point at no paper that a reader does not have, and at
# no address that a build could come to depend on.
check_wording() {
    local papers='\bs[p]ec\b|s[p]ecification|as s[p]ecified|\bP[a]rts? [0-9]+\.[0-9]|r[e]quirements?\b'
    local places='/w[o]rk/|/t[m]p/team'
    local address='[a-z]+://[a-z0-9.-]+\.[a-z]{2,}'
    local known='://([a-z]+\.invalid|jakarta\.apache\.org|logging\.apache\.org|www\.w3\.org|schemas\.microsoft\.com)'
    local found=0
    ! git grep --untracked -n -I -i -E "$papers|$places" -- . || {
        warn "these lines point at a paper or a place that a reader doesn't have: say it in words"
        found=1
    }
    ! git grep --untracked -n -I -i -E "$address" -- . | grep -v -E "$known" || {
        warn "these lines name a host that isn't in the list of check_wording"
        found=1
    }
    return "$found"
}
