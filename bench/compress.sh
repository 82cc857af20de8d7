#!/usr/bin/env bash
# Format-1 compression vs 7-Zip's LZMA-in-zip (level 5, one thread) on a tree
# of small files, and vs xz (raw LZMA2, preset 5, 16 MiB dictionary) on one
# large file. Each side runs twice, alternating, and the faster run counts.
# CPU seconds (user + system) are the measure: on a shared machine wall time
# mostly measures the neighbours; it is printed too.
set -euo pipefail
build=$1
. "$(dirname "$0")/common.sh"
make_inputs
tmp=$(mktemp -d /tmp/velzip-bench.XXXXXX)
trap 'rm -rf "$tmp"' EXIT
bc=$build/bench/bench_compress

velzip_tree() { rm -f "$tmp/tree.zip"; "$bc" folder "$TREE" "$tmp/tree.zip"; }
sevenzip_tree() { rm -f "$tmp/tree7.zip"; (cd "$TREE" && 7zz a -tzip -mm=LZMA -mx=5 -mmt=1 "$tmp/tree7.zip" .); }
velzip_large() { rm -f "$tmp/large.zip"; "$bc" file "$LARGE" "$tmp/large.zip"; }
xz_large() { xz --format=raw --lzma2=preset=5,dict=16MiB -T1 -c "$LARGE" > "$tmp/large.xz"; }
# cpu_wall CMD...: "cpu wall" seconds of one run.
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

echo "== format-1 compression: tree of small files ($(find "$TREE" -type f | wc -l) files) =="
export -f velzip_tree sevenzip_tree velzip_large xz_large
export tmp bc TREE LARGE
read -r vt vtw st stw < <(best_of_two "bash -c velzip_tree" "bash -c sevenzip_tree")
vsize=$(stat -c %s "$tmp/tree.zip")
ssize=$(stat -c %s "$tmp/tree7.zip")
vmem=$(peak_kib "$bc" folder "$TREE" "$tmp/tree.zip")
row "" "velzip" "7zz" "ratio" "target"
row "CPU seconds" "$vt" "$st" "$(ratio "$vt" "$st")" "(<=0.90x)"
row "wall seconds" "$vtw" "$stw" "$(ratio "$vtw" "$stw")" ""
row "archive bytes" "$vsize" "$ssize" "$(ratio "$vsize" "$ssize")" "(<=1.00x)"
row "peak memory KiB" "$vmem" "" "" "(<=204800)"

# The fixed cost of one entry: many one-line files.
mkdir "$tmp/tiny" "$tmp/tiny7"
read -r _ tiny_s _ _ _ _ < <("$bc" tiny 3000 "$tmp/tiny")
for i in $(seq 0 2999); do echo "line $i" > "$tmp/tiny7/f$i"; done
t7() { (cd "$tmp/tiny7" && 7zz a -tzip -mm=LZMA -mx=5 -mmt=1 "$tmp/tiny7.zip" .); }
tiny7_s=$(seconds t7)
per() { python3 -c "print(f'{$1 / 3000 * 1e6:.0f}')"; }
row "microseconds per one-line file (3000)" "$(per "$tiny_s")" "$(per "$tiny7_s")" \
  "$(ratio "$tiny_s" "$tiny7_s")" ""

echo "== format-1 compression: one 64 MB file =="
read -r vl vlw xl xlw < <(best_of_two "bash -c velzip_large" "bash -c xz_large")
lmem=$(peak_kib "$bc" file "$LARGE" "$tmp/large.zip")
row "" "velzip" "xz" "ratio" "target"
row "CPU seconds" "$vl" "$xl" "$(ratio "$vl" "$xl")" "(<=1.03x)"
row "wall seconds" "$vlw" "$xlw" "$(ratio "$vlw" "$xlw")" ""
row "bytes out" "$(stat -c %s "$tmp/large.zip")" "$(stat -c %s "$tmp/large.xz")" "" ""
row "peak memory KiB" "$lmem" "" "" "(<=204800)"
