#!/usr/bin/env bash
# What a page quotes is what is compiled: each block that stands under "<!-- quoted from FILE -->" must be that file, and
# one under "<!-- changed from FILE to FILE -->" the lines in which the two differ. And what
# the recording of the demo announces and asks is what the demo does, and what a page shows is there.
# quotes.sh SOURCE
set -euo pipefail
cd "$1"

# block PAGE LINE: the block after that line.
block() {
    awk -v start="$2" 'NR > start && /^```/ { if (open) exit; open = 1; next } NR > start && open' "$1"
}

# changes FILE FILE: without what tells where they are.
changes() {
    diff -U 0 "$1" "$2" | sed -E '1,2d; /^@@/d'
}

# check PAGE LINE WHAT: standard input is what should stand there.
check() {
    diff <(block "$1" "$2") - || { echo "FAIL: $1:$2 is not $3" >&2; exit 1; }
    count=$((count + 1))
}

count=0
while IFS=: read -r page line comment; do
    read -ra words <<<"$comment"
    if [ "${words[1]}" = quoted ]; then
        check "$page" "$line" "${words[3]}" < <(grep -v '^// SPDX-License-Identifier' "${words[3]}")
    else
        check "$page" "$line" "what changes from ${words[3]} to ${words[5]}" < <(changes "${words[3]}" "${words[5]}")
    fi
done < <(grep -nE '^<!-- (quoted|changed) from ' README.md docs/*.md /dev/null)
[ "$count" -gt 0 ] || { echo "FAIL: nothing is quoted anywhere" >&2; exit 1; }

while IFS=: read -r page picture; do
    [ -s "$(dirname "$page")/$picture" ] || { echo "FAIL: $page shows $picture, which is not there" >&2; exit 1; }
done < <(grep -oE '(\]\(|src=")[^)"]+\.(png|svg)' README.md docs/*.md | sed -E 's/:(\]\(|src=")/:/')

recording=docs/pictures/demo.svg
# shellcheck disable=SC2016
announced=$(sed -nE '/\$address/d; s/\$count/N/; s/^ *say "(.*)"$/--- \1/p; s/^ask (.*)$/$ zctl \1/p' scripts/demo)
recorded=$(sed -nE 's/^<text [^>]*class="(say|ask)">(.*)<\/text>$/\2/p' "$recording" |
    sed -E '1d; s/<[^>]*>/ /g; s/  +/ /g; s/ $//; s/[0-9]+ heartbeats/N heartbeats/')
diff <(printf '%s\n' "$announced") <(printf '%s\n' "$recorded") ||
    { echo "FAIL: scripts/demo does not do what is recorded: take it anew, by scripts/record" >&2; exit 1; }
if sed 's/<[^>]*>//g' "$recording" | grep -P '[^~.a-z]/[a-z]+/|\b20[1-9]\d\b|process (?!4711\b)'; then
    echo "FAIL: the recording tells where or when it was made" >&2
    exit 1
fi
[ "$(wc -c <"$recording")" -lt 60000 ] || { echo "FAIL: the recording is too large for a page" >&2; exit 1; }
echo "ok: $count quotes, and a recording of $(wc -l <<<"$announced") announcements and questions"
