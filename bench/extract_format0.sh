#!/usr/bin/env bash
# Format-0 extraction of the tree vs `unzip -q`, on the same deflate archive
# made by `zip -r -y`. Wall seconds, the least of three runs into a fresh
# folder.
. "$(dirname "$0")/common.sh"

(cd "$TREE" && zip -q -r -y "$tmp/tree.zip" .)
vx() { echo "'$TOOL' -q extract -f 0 -j $1 '$tmp/tree.zip' '$out_root/out'"; }
restores_tree "$(vx 2)"
old="'$OLD_TOOL' -q extract -f 0 '$tmp/tree.zip' '$out_root/out'"
walls "$(vx 2)" "$(vx 1)" "unzip -q '$tmp/tree.zip' -d '$out_root/out'" ${OLD_TOOL:+"$old"}
v2w=${W[0]} v1w=${W[1]} uw=${W[2]}

echo "== format-0 extraction: tree of $(tree_files) files (wall seconds) =="
target_head ""
target "tree, -j 2 vs unzip -q" "$v2w" "$uw" 0.70
target "tree, -j 1 vs unzip -q" "$v1w" "$uw" 1.00
if [ -n "$OLD_TOOL" ]; then
  target "tree, -j 1 vs the earlier velzip" "$v1w" "${W[3]}" 1.05
fi
