#!/usr/bin/env bash
# The page of each program has the options and the exit statuses that its --help has, and no others.
# manual.sh SOURCE PROGRAM...
set -euo pipefail
source=$1
shift
. "$(dirname "$0")/common.sh"

# section NAME PAGE: its lines, as they are typed.
section() {
    awk -v name="$1" '/^\.SH/ { open = $0 == ".SH " name; next } open' "$2" | sed 's/\\-/-/g'
}

# What stands behind ".TP" is the head of an entry.
heads() {
    grep -A1 '^\.TP' | grep -v -e '^\.TP' -e '^--$' || true
}

for program in "$@"; do
    page=$source/docs/$(basename "$program").1
    "$program" --help >"$folder/help"
    # Options of Qt's own are left to Qt.
    sed -n 's/^  \(-[^ ].*\)/\1/p' "$folder/help" | grep -oE -- '^(-., )?--[a-z-]+' | grep -v -- --help-all |
        grep -oE -- '-[-a-z]+' | sort >"$folder/options"
    diff "$folder/options" <(section OPTIONS "$page" | heads | grep -oE -- '-[-a-z]+' | sort) ||
        fail "options of $program (<) and of $page (>)"
    # "Exit status: 0 done; 1 refused; 2 the command line cannot be used."
    sed -n '/^Exit status: /,/^$/p' "$folder/help" | tr '\n' ' ' | sed 's/^Exit status:/;/' | grep -oE '; +[0-9]+' |
        grep -oE '[0-9]+' >"$folder/statuses"
    diff "$folder/statuses" <(section "EXIT STATUS" "$page" | heads | grep -oE '[0-9]+') ||
        fail "exit statuses of $program (<) and of $page (>)"
    if command -v groff >/dev/null; then
        quietly groff -man -Tutf8 -ww -z "$page"
        ! [ -s "$folder/log" ] || fail "$(cat "$folder/log")"
    fi
done
echo ok
