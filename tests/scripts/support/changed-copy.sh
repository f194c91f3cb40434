# shellcheck shell=bash
# For tests of a check of the tree: copies of it that are changed in one place each.
# Needs COPIED, the folders that the check looks at, and CHECK, the command that is given the copy's place.

copy=$(mktemp --directory)
trap 'rm -rf "$copy"' EXIT

fresh_copy() {
    rm -rf "${copy:?}"/*
    cp -r "${COPIED[@]}" "$copy"
}

# refused FILE SED-SCRIPT TEXT: with the file changed so, the check fails and says this.
refused() {
    local report
    fresh_copy
    sed -i -e "$2" "$copy/$1"
    if cmp -s "$1" "$copy/$1"; then
        echo "nothing in $1 changes by $2" >&2
        return 1
    fi
    if report=$("${CHECK[@]}" "$copy" 2>&1); then
        echo "passes with $1 changed by $2" >&2
        return 1
    fi
    if ! grep -q -F -- "$3" <<<"$report"; then
        printf '%s changed by %s gives "%s" and not "%s"\n' "$1" "$2" "$report" "$3" >&2
        return 1
    fi
}
