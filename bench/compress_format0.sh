#!/usr/bin/env bash
# Format-0 compression of the tree of small files vs Info-ZIP's `zip -r -q`
# (both deflate at level 6; velzip also writes a metadata companion per
# file). Each side runs twice, alternating, and the faster run counts. CPU
# seconds (user + system) are the measure; wall time is printed too.
. "$(dirname "$0")/common.sh"

velzip_tree() { rm -f "$tmp/tree.zip"; "$build/bench/bench_compress_format0" "$TREE" "$tmp/tree.zip"; }
zip_tree() { rm -f "$tmp/tree-zip.zip"; (cd "$(dirname "$TREE")" && zip -r -q "$tmp/tree-zip.zip" "$(basename "$TREE")"); }

echo "== format-0 compression: tree of small files ($(tree_files) files) =="
read -r vt vtw zt ztw < <(best_of_two velzip_tree zip_tree)
row "" "velzip" "zip -r" "ratio" "target"
row "CPU seconds" "$vt" "$zt" "$(ratio "$vt" "$zt")" "(<=1.30x)"
row "wall seconds" "$vtw" "$ztw" "$(ratio "$vtw" "$ztw")" ""
row "entries (velzip: + companions)" "$(unzip -Z -1 "$tmp/tree.zip" | wc -l)" \
  "$(unzip -Z -1 "$tmp/tree-zip.zip" | wc -l)" "" ""
row "archive bytes" "$(stat -c %s "$tmp/tree.zip")" "$(stat -c %s "$tmp/tree-zip.zip")" "" ""
