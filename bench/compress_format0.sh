#!/usr/bin/env bash
# Format-0 compression of the tree of small files, through the velzip tool,
# vs Info-ZIP's `zip -r -q` (both deflate at level 6). Wall seconds, the
# least of three runs each, taking turns.
. "$(dirname "$0")/common.sh"

v0() { echo "rm -f '$tmp/tree.zip'; '$TOOL' -q compress -f 0 -j $1 '$TREE' '$tmp/tree.zip'"; }
z="rm -f '$tmp/tree-zip.zip'; cd '$(dirname "$TREE")' && zip -r -q '$tmp/tree-zip.zip' '$(basename "$TREE")'"

old="rm -f '$tmp/old.zip'; '$OLD_TOOL' -q compress -f 0 '$TREE' '$tmp/old.zip'"
walls "$(v0 2)" "$(v0 1)" "$z" ${OLD_TOOL:+"$old"}
v2w=${W[0]} v1w=${W[1]} zw=${W[2]}
sh -c "$(v0 2)" >/dev/null
sh -c "$z" >/dev/null

echo "== format-0 compression: tree of $(tree_files) files (wall seconds) =="
target_head ""
target "tree, -j 2 vs zip -r -q" "$v2w" "$zw" 0.60
target "tree, -j 1 vs zip -r -q" "$v1w" "$zw" 1.01
if [ -n "$OLD_TOOL" ]; then
  target "tree, -j 1 vs the earlier velzip" "$v1w" "${W[3]}" 1.05
fi
target "archive bytes vs zip -r -q (within 2%)" "$(stat -c %s "$tmp/tree.zip")" \
  "$(stat -c %s "$tmp/tree-zip.zip")" 1.02
