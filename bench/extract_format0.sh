#!/usr/bin/env bash
# Format-0 extraction vs unzip, on the same deflate archive of the tree.
. "$(dirname "$0")/common.sh"

# Packing is not measured. zip -y keeps links as links, as velzip does.
(cd "$TREE" && zip -q -r -y "$tmp/tree.zip" .)
velzip_x="'$build/bench/bench_unzip0' '$tmp/tree.zip' '$tmp/out'"
unzip_x="unzip -q '$tmp/tree.zip' -d '$tmp/out'"
restores_tree "$velzip_x"

echo "== format-0 extraction: tree of $(tree_files) files, $(du -sm "$TREE" | cut -f1) MB =="
read -r vw vc < <(best "$velzip_x")
read -r uw uc < <(best "$unzip_x")
row "" "wall s" "cpu s" "wall/unzip" "cpu/unzip"
row "velzip (format 0)" "$vw" "$vc" "$(ratio "$vw" "$uw")" "$(ratio "$vc" "$uc")"
row "unzip -q" "$uw" "$uc" "1.00x" "1.00x"
row "target: velzip <= 1.30x of unzip -q" "" "" "" ""
row "archive MB" "$(($(stat -c %s "$tmp/tree.zip") / 1000000))" "" "" ""
