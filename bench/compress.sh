#!/usr/bin/env bash
# Format-1 compression vs 7-Zip's LZMA-in-zip (level 5, one thread) on a tree
# of small files, and vs xz (raw LZMA2, preset 5, 16 MiB dictionary) on one
# large file. Each side runs twice, alternating, and the faster run counts.
# CPU seconds (user + system) are the measure: on a shared machine wall time
# mostly measures the neighbours; it is printed too.
. "$(dirname "$0")/common.sh"
bc=$build/bench/bench_compress

velzip_tree() { rm -f "$tmp/tree.zip"; "$build/bench/bench_compress" folder "$TREE" "$tmp/tree.zip"; }
sevenzip_tree() { rm -f "$tmp/tree7.zip"; (cd "$TREE" && 7zz a -tzip -mm=LZMA -mx=5 -mmt=1 "$tmp/tree7.zip" .); }
velzip_large() { rm -f "$tmp/large.zip"; "$build/bench/bench_compress" file "$LARGE" "$tmp/large.zip"; }
xz_large() { xz --format=raw --lzma2=preset=5,dict=16MiB -T1 -c "$LARGE" > "$tmp/large.xz"; }

echo "== format-1 compression: tree of small files ($(tree_files) files) =="
read -r vt vtw st stw < <(best_of_two velzip_tree sevenzip_tree)
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
read -r vl vlw xl xlw < <(best_of_two velzip_large xz_large)
lmem=$(peak_kib "$bc" file "$LARGE" "$tmp/large.zip")
row "" "velzip" "xz" "ratio" "target"
row "CPU seconds" "$vl" "$xl" "$(ratio "$vl" "$xl")" "(<=1.03x)"
row "wall seconds" "$vlw" "$xlw" "$(ratio "$vlw" "$xlw")" ""
row "bytes out" "$(stat -c %s "$tmp/large.zip")" "$(stat -c %s "$tmp/large.xz")" "" ""
row "peak memory KiB" "$lmem" "" "" "(<=204800)"
