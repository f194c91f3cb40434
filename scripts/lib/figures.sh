# shellcheck shell=bash
# The figures of the last run on the page about the benchmarks. Needs common.sh.

FIGURES_BEGIN='<!-- figures of the last run: begin -->'
FIGURES_END='<!-- figures of the last run: end -->'

# require_figure_marks PAGE: stops when the page doesn't say where its figures are.
require_figure_marks() {
    local mark
    for mark in "$FIGURES_BEGIN" "$FIGURES_END"; do
        [ "$(grep -c -x -F -e "$mark" "$1")" -eq 1 ] || die "$1 doesn't have the line \"$mark\" once."
    done
}

# write_figures PAGE DATE RESULTS: puts what a run has printed between the page's marks.
write_figures() {
    local page=$1 date=$2 results=$3 new
    require_figure_marks "$page"
    new=$(mktemp)
    {
        sed "\\|^$FIGURES_BEGIN\$|q" "$page"
        printf '\nMeasured on %s.\n\n' "$date"
        sed 's/^/    /; s/ *$//' "$results"
        printf '\n'
        sed -n "\\|^$FIGURES_END\$|,\$p" "$page"
    } >"$new"
    cat "$new" >"$page"
    rm -f "$new"
}

# figures_on_page PAGE: the names of the figures that the page shows, in their order. A name ends where two
# blanks follow it.
figures_on_page() {
    require_figure_marks "$1"
    sed -n -E "\\|^$FIGURES_BEGIN\$|,\\|^$FIGURES_END\$| {
        /  (holds|DOES NOT HOLD|no limit)\$/ s/^ {4}([^ ]+( [^ ]+)*)  .*/\\1/p
    }" "$1"
}
