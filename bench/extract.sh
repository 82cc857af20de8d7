#!/usr/bin/env bash
# Format-1 extraction, through the velzip tool: the tree vs `7zz x` of
# 7-Zip's LZMA-in-zip, and one 64 MB file vs `xz -d` of the same raw LZMA2
# stream. Wall seconds, the least of three runs into a fresh folder.
. "$(dirname "$0")/common.sh"

"$TOOL" -q compress "$TREE" "$tmp/tree.vz"
(cd "$TREE" && 7zz a -tzip -mm=LZMA -mx=5 -mmt=1 "$tmp/tree.7z.zip" . >/dev/null)
mkdir -p "$tmp/one" && cp "$LARGE" "$tmp/one/large"
"$TOOL" -q compress "$tmp/one" "$tmp/large.vz"
xz --format=raw --lzma2=preset=5,dict=16MiB -T1 -c "$LARGE" > "$tmp/large.xz"

vx() { echo "'$TOOL' -q extract -j $1 '$2' '$out_root/out'"; }
restores_tree "$(vx 2 "$tmp/tree.vz")"
old="'$OLD_TOOL' -q extract '$tmp/tree.vz' '$out_root/out'"
walls "$(vx 2 "$tmp/tree.vz")" "$(vx 1 "$tmp/tree.vz")" "7zz x -y -o'$out_root/out' '$tmp/tree.7z.zip'" \
  "$(vx 1 "$tmp/large.vz")" \
  "mkdir -p '$out_root/out' && xz --format=raw --lzma2=dict=16MiB -d -c '$tmp/large.xz' > '$out_root/out/large'" \
  ${OLD_TOOL:+"$old"}
v2w=${W[0]} v1w=${W[1]} sw=${W[2]} vlw=${W[3]} xlw=${W[4]}
mem=$(peak_kib "$TOOL" -q extract -j 1 "$tmp/large.vz" "$out_root/out")
rm -rf "$out_root/out"

echo "== format-1 extraction: tree of $(tree_files) files; one 64 MB file (wall seconds) =="
target_head ""
target "tree, -j 2 vs 7zz x" "$v2w" "$sw" 0.60
target "tree, -j 1 vs 7zz x" "$v1w" "$sw" 1.00
if [ -n "$OLD_TOOL" ]; then
  target "tree, -j 1 vs the earlier velzip" "$v1w" "${W[5]}" 1.05
fi
target "64 MB file vs xz -d" "$vlw" "$xlw" 1.05
row "peak memory MiB, 64 MB file (target < 64)" "$((mem / 1024))" "" "" ""
