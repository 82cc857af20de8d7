#!/usr/bin/env bash
# Format-0 compression of the tree of small files vs Info-ZIP's `zip -r -q`
# (both deflate at level 6; velzip also writes a metadata companion per
# file). Each side runs twice, alternating, and the faster run counts. CPU
# seconds (user + system) are the measure; wall time is printed too.
set -euo pipefail
build=$1
. "$(dirname "$0")/common.sh"
make_inputs
tmp=$(mktemp -d /tmp/velzip-bench.XXXXXX)
trap 'rm -rf "$tmp"' EXIT
bc=$build/bench/bench_compress_format0

velzip_tree() { rm -f "$tmp/tree.zip"; "$bc" "$TREE" "$tmp/tree.zip"; }
zip_tree() { rm -f "$tmp/tree-zip.zip"; (cd "$(dirname "$TREE")" && zip -r -q "$tmp/tree-zip.zip" "$(basename "$TREE")"); }
cpu_wall() {
  /usr/bin/time -f '%U %S %e' "$@" 2>&1 >/dev/null | tail -1 |
    awk '{ printf "%.2f %.2f\n", $1 + $2, $3 }'
}
best_of_two() {  # best_of_two A B: "cpuA wallA cpuB wallB", each the faster of two runs
  local a1 b1 a2 b2
  a1=$(cpu_wall $1); b1=$(cpu_wall $2); a2=$(cpu_wall $1); b2=$(cpu_wall $2)
  python3 - "$a1" "$a2" "$b1" "$b2" <<'PY'
import sys
a = min((tuple(map(float, r.split())) for r in sys.argv[1:3]))
b = min((tuple(map(float, r.split())) for r in sys.argv[3:5]))
print(f"{a[0]:.2f} {a[1]:.2f} {b[0]:.2f} {b[1]:.2f}")
PY
}

echo "== format-0 compression: tree of small files ($(find "$TREE" -type f | wc -l) files) =="
export -f velzip_tree zip_tree
export tmp bc TREE
read -r vt vtw zt ztw < <(best_of_two "bash -c velzip_tree" "bash -c zip_tree")
entries=$(unzip -Z -1 "$tmp/tree.zip" | wc -l)
zentries=$(unzip -Z -1 "$tmp/tree-zip.zip" | wc -l)
row "" "velzip" "zip -r" "ratio" "target"
row "CPU seconds" "$vt" "$zt" "$(ratio "$vt" "$zt")" "(<=1.30x)"
row "wall seconds" "$vtw" "$ztw" "$(ratio "$vtw" "$ztw")" ""
row "entries (velzip: + companions)" "$entries" "$zentries" "" ""
row "archive bytes" "$(stat -c %s "$tmp/tree.zip")" "$(stat -c %s "$tmp/tree-zip.zip")" "" ""
