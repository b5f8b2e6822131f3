#!/usr/bin/env bash
# What a page quotes is what is compiled: each block that stands under "<!-- quoted from FILE -->" must be that file.
# quotes.sh SOURCE
set -euo pipefail
cd "$1"

count=0
while IFS=: read -r page line comment; do
    file=$(sed -E 's/.*quoted from ([^ ]+) -->.*/\1/' <<<"$comment")
    quote=$(awk -v start="$line" 'NR > start && /^```/ { if (open) exit; open = 1; next } NR > start && open' "$page")
    if ! diff <(printf '%s\n' "$quote") <(grep -v '^// SPDX-License-Identifier' "$file"); then
        echo "FAIL: $page:$line is not $file" >&2
        exit 1
    fi
    count=$((count + 1))
done < <(grep -n 'quoted from' README.md docs/*.md /dev/null)
[ "$count" -gt 0 ] || { echo "FAIL: nothing is quoted anywhere" >&2; exit 1; }
echo "ok: $count quotes"
