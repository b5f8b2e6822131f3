#!/usr/bin/env bash
# The reference builds from the headers without a warning, and every public class says who owns it, on which threads it
# may be used and what comes back on failure, itself or through the class that it points to.
# reference.sh SOURCE
set -euo pipefail
cd "$1"
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

(cat docs/Doxyfile; echo "OUTPUT_DIRECTORY = $folder") | doxygen - || { echo "FAIL: doxygen has warnings" >&2; exit 1; }

undocumented=$(awk '
    /^ *(\/\/\/|\/\*\*| \*)/ { comment = comment $0; next }
    /^template/ { next }
    /^class .*[^;]$/ && !/^class QEnable/ {
        sub(/^class (ZDEFAULT_EXPORT )?/, "")
        if (!(comment ~ /Ownership:/ && comment ~ /Thread:/ && comment ~ /Failure:/) && comment !~ /Otherwise as `Z[A-Za-z]+`/)
            print FILENAME ": " $1
    }
    { comment = "" }' $(sed -n '/^INPUT/p' docs/Doxyfile | cut -d= -f2 | xargs -n1 | sed 's|$|/*.h|'))
[ -z "$undocumented" ] || { echo "FAIL: no word of ownership, thread or failure:"; echo "$undocumented"; exit 1; } >&2
echo ok
