#!/usr/bin/env bash
# Format-0 extraction vs unzip, on the same deflate archive of the tree.
set -euo pipefail
build=$1
. "$(dirname "$0")/common.sh"
make_inputs
tmp=$(mktemp -d /tmp/velzip-bench.XXXXXX)
trap 'rm -rf "$tmp"' EXIT
tool=$build/bench/bench_unzip0

# Packing is not measured. zip -y keeps links as links, as velzip does.
(cd "$TREE" && zip -q -r -y "$tmp/tree.zip" .)

# best COMMAND: "wall cpu" seconds, each the least of three runs into a
# fresh $tmp/out (cpu = user + system, steadier on a shared machine).
best() {
  local runs="" line
  for _ in 1 2 3; do
    rm -rf "$tmp/out"
    line=$(/usr/bin/time -f '%e %U %S' sh -c "$1" 2>&1 >/dev/null | tail -1)
    case $line in [0-9]*) runs+="$line;" ;; *) echo "FAILED: $1" >&2; return 1 ;; esac
  done
  rm -rf "$tmp/out"
  python3 -c "
r = [list(map(float, x.split())) for x in '$runs'.split(';') if x]
print(f'{min(a for a, _, _ in r):.3f} {min(u + s for _, u, s in r):.3f}')"
}
velzip_x="'$tool' '$tmp/tree.zip' '$tmp/out'"
unzip_x="unzip -q '$tmp/tree.zip' -d '$tmp/out'"

# Sanity: velzip restores the tree byte for byte.
sh -c "$velzip_x" >/dev/null
diff -r "$TREE" "$tmp/out" >/dev/null || { echo "FAILED: extracted tree differs" >&2; exit 1; }
rm -rf "$tmp/out"

files=$(find "$TREE" -type f | wc -l)
echo "== format-0 extraction: tree of $files files, $(du -sm "$TREE" | cut -f1) MB =="
read -r vw vc < <(best "$velzip_x")
read -r uw uc < <(best "$unzip_x")
row "" "wall s" "cpu s" "wall/unzip" "cpu/unzip"
row "velzip (format 0)" "$vw" "$vc" "$(ratio "$vw" "$uw")" "$(ratio "$vc" "$uc")"
row "unzip -q" "$uw" "$uc" "1.00x" "1.00x"
row "target: velzip <= 1.30x of unzip -q" "" "" "" ""
row "archive MB" "$(($(stat -c %s "$tmp/tree.zip") / 1000000))" "" "" ""
