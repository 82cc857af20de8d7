#!/usr/bin/env bash
# Format-1 compression, through the velzip tool: the tree of small files vs
# 7-Zip's LZMA-in-zip at level 5 (one thread, and its default threads), and
# one 64 MB file vs xz (raw LZMA2, preset 5, 16 MiB dictionary, one thread).
# Wall seconds, the least of three runs each; peak memory of one run.
. "$(dirname "$0")/common.sh"

v1() { echo "rm -f '$tmp/tree.zip'; '$TOOL' -q compress -j $1 '$TREE' '$tmp/tree.zip'"; }
s1="rm -f '$tmp/tree7.zip'; cd '$TREE' && 7zz a -tzip -mm=LZMA -mx=5 -mmt=1 '$tmp/tree7.zip' ."
sn="rm -f '$tmp/tree7n.zip'; cd '$TREE' && 7zz a -tzip -mm=LZMA -mx=5 '$tmp/tree7n.zip' ."
mkdir -p "$tmp/one" && cp "$LARGE" "$tmp/one/large"
vl="rm -f '$tmp/large.zip'; '$TOOL' -q compress -j 1 '$tmp/one' '$tmp/large.zip'"
xl="xz --format=raw --lzma2=preset=5,dict=16MiB -T1 -c '$LARGE' > '$tmp/large.xz'"

old="rm -f '$tmp/old.zip'; '$OLD_TOOL' -q compress '$TREE' '$tmp/old.zip'"
walls "$(v1 2)" "$(v1 1)" "$s1" "$sn" "$vl" "$xl" ${OLD_TOOL:+"$old"}
v2w=${W[0]} v1w=${W[1]} s1w=${W[2]} snw=${W[3]} vlw=${W[4]} xlw=${W[5]}
sh -c "$(v1 2)" >/dev/null
sh -c "$s1" >/dev/null
vsize=$(stat -c %s "$tmp/tree.zip")
ssize=$(stat -c %s "$tmp/tree7.zip")
m2=$(peak_kib "$TOOL" -q compress -j 2 "$TREE" "$tmp/m.zip")
rm -f "$tmp/m.zip"
m1=$(peak_kib "$TOOL" -q compress -j 1 "$tmp/one" "$tmp/m.zip")
rm -f "$tmp/m.zip"
mc=$(peak_kib "$TOOL" -q compress -j 2 "$tmp/one" "$tmp/m.zip")

echo "== format-1 compression: tree of $(tree_files) files; one 64 MB file (wall seconds) =="
target_head ""
target "tree, -j 2 vs 7zz -mmt=1" "$v2w" "$s1w" 0.55
target "tree, -j 2 vs 7zz (its default threads)" "$v2w" "$snw" 1.00
target "tree, -j 1 vs 7zz -mmt=1" "$v1w" "$s1w" 1.05
if [ -n "$OLD_TOOL" ]; then
  target "tree, -j 1 vs the earlier velzip" "$v1w" "${W[6]}" 1.05
fi
target "tree archive bytes vs 7zz" "$vsize" "$ssize" 1.00
target "64 MB file vs xz -T1" "$vlw" "$xlw" 1.03
row "peak memory MiB: tree -j 2 / file -j 1 / file -j 2" "$((m2 / 1024))" "$((m1 / 1024))" \
  "$((mc / 1024))" "<=200/300"
