#!/usr/bin/env bash
# Format-1 extraction vs 7zz (LZMA zip), unzip (deflate zip) and xz (raw LZMA2).
. "$(dirname "$0")/common.sh"
tool=$build/bench/bench_extract

# Packing is not measured; archives are made once per run.
"$tool" pack "$TREE" "$tmp/tree.vz"
(cd "$TREE" && 7zz a -tzip -mm=LZMA -mx=5 -mmt=1 "$tmp/tree.7z.zip" . >/dev/null)
(cd "$TREE" && zip -q -r "$tmp/tree.zip" .)
"$tool" pack "$LARGE" "$tmp/large.vz"
xz --format=raw --lzma2=preset=5,dict=16MiB -T1 -c "$LARGE" > "$tmp/large.xz"

velzip_x() { echo "'$tool' unzip '$1' '$tmp/out'"; }
restores_tree "$(velzip_x "$tmp/tree.vz")"

echo "== extraction: tree of $(tree_files) files, $(du -sm "$TREE" | cut -f1) MB =="
read -r vw vc < <(best "$(velzip_x "$tmp/tree.vz")")
read -r sw sc < <(best "7zz x -y -o'$tmp/out' '$tmp/tree.7z.zip'")
read -r uw uc < <(best "unzip -q '$tmp/tree.zip' -d '$tmp/out'")
row "" "wall s" "cpu s" "wall/7zz" "cpu/7zz"
row "velzip (format 1)" "$vw" "$vc" "$(ratio "$vw" "$sw")" "$(ratio "$vc" "$sc")"
row "7zz x (LZMA zip)" "$sw" "$sc" "1.00x" "1.00x"
row "unzip (deflate zip)" "$uw" "$uc" "$(ratio "$uw" "$sw")" "$(ratio "$uc" "$sc")"
row "target: velzip <= 1.00x of 7zz x" "" "" "" ""
row "archive MB: velzip / 7zz / deflate" \
  "$(($(stat -c %s "$tmp/tree.vz") / 1000000))" "$(($(stat -c %s "$tmp/tree.7z.zip") / 1000000))" \
  "$(($(stat -c %s "$tmp/tree.zip") / 1000000))" ""

echo "== extraction: one $(($(stat -c %s "$LARGE") / 1048576)) MiB file =="
read -r vw vc < <(best "$(velzip_x "$tmp/large.vz")")
read -r xw xc < <(best "mkdir -p '$tmp/out' && xz --format=raw --lzma2=dict=16MiB -d -c '$tmp/large.xz' > '$tmp/out/large'")
mem=$(peak_kib "$tool" unzip "$tmp/large.vz" "$tmp/out")
rm -rf "$tmp/out"
row "" "wall s" "cpu s" "wall/xz" "cpu/xz"
row "velzip (format 1)" "$vw" "$vc" "$(ratio "$vw" "$xw")" "$(ratio "$vc" "$xc")"
row "xz -d (raw LZMA2, to a file)" "$xw" "$xc" "1.00x" "1.00x"
row "target: velzip <= 1.05x of xz -d" "" "" "" ""
row "velzip peak KiB / target (< 64 MiB)" "$mem" "65536" "" ""
