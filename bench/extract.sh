#!/usr/bin/env bash
# Format-1 extraction vs 7zz (LZMA zip), unzip (deflate zip) and xz (raw LZMA2).
set -euo pipefail
build=$1
. "$(dirname "$0")/common.sh"
make_inputs
tmp=$(mktemp -d /tmp/velzip-bench.XXXXXX)
trap 'rm -rf "$tmp"' EXIT
tool=$build/bench/bench_extract

# Packing is not measured; archives are made once per run.
"$tool" pack "$TREE" "$tmp/tree.vz"
(cd "$TREE" && 7zz a -tzip -mm=LZMA -mx=5 -mmt=1 "$tmp/tree.7z.zip" . >/dev/null)
(cd "$TREE" && zip -q -r "$tmp/tree.zip" .)
"$tool" pack "$LARGE" "$tmp/large.vz"
xz --format=raw --lzma2=preset=5,dict=16MiB -T1 -c "$LARGE" > "$tmp/large.xz"

# best COMMAND: "wall cpu" seconds of a shell command line, each the least of
# three runs into a fresh $tmp/out (cpu = user + system of the command and its
# children, steadier than wall time when the machine is shared).
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
velzip_x="'$tool' unzip '%s' '$tmp/out'"
sevenz_x="7zz x -y -o'$tmp/out' '%s'"
unzip_x="unzip -q '%s' -d '$tmp/out'"
xz_x="mkdir -p '$tmp/out' && xz --format=raw --lzma2=dict=16MiB -d -c '%s' > '$tmp/out/large'"
cmd() { printf "$1" "$2"; }

# Sanity: velzip restores the tree byte for byte.
sh -c "$(cmd "$velzip_x" "$tmp/tree.vz")" >/dev/null
diff -r "$TREE" "$tmp/out" >/dev/null || { echo "FAILED: extracted tree differs" >&2; exit 1; }
rm -rf "$tmp/out"

files=$(find "$TREE" -type f | wc -l)
echo "== extraction: tree of $files files, $(du -sm "$TREE" | cut -f1) MB =="
read -r vw vc < <(best "$(cmd "$velzip_x" "$tmp/tree.vz")")
read -r sw sc < <(best "$(cmd "$sevenz_x" "$tmp/tree.7z.zip")")
read -r uw uc < <(best "$(cmd "$unzip_x" "$tmp/tree.zip")")
row "" "wall s" "cpu s" "wall/7zz" "cpu/7zz"
row "velzip (format 1)" "$vw" "$vc" "$(ratio "$vw" "$sw")" "$(ratio "$vc" "$sc")"
row "7zz x (LZMA zip)" "$sw" "$sc" "1.00x" "1.00x"
row "unzip (deflate zip)" "$uw" "$uc" "$(ratio "$uw" "$sw")" "$(ratio "$uc" "$sc")"
row "target: velzip <= 1.00x of 7zz x" "" "" "" ""
row "archive MB: velzip / 7zz / deflate" \
  "$(($(stat -c %s "$tmp/tree.vz") / 1000000))" "$(($(stat -c %s "$tmp/tree.7z.zip") / 1000000))" \
  "$(($(stat -c %s "$tmp/tree.zip") / 1000000))" ""

echo "== extraction: one $(($(stat -c %s "$LARGE") / 1048576)) MiB file =="
read -r vw vc < <(best "$(cmd "$velzip_x" "$tmp/large.vz")")
read -r xw xc < <(best "$(cmd "$xz_x" "$tmp/large.xz")")
mem=$(peak_kib "$tool" unzip "$tmp/large.vz" "$tmp/out")
rm -rf "$tmp/out"
limit=$(($(stat -c %s "$LARGE") / 1024 + 32 * 1024))
row "" "wall s" "cpu s" "wall/xz" "cpu/xz"
row "velzip (format 1)" "$vw" "$vc" "$(ratio "$vw" "$xw")" "$(ratio "$vc" "$xc")"
row "xz -d (raw LZMA2, to a file)" "$xw" "$xc" "1.00x" "1.00x"
row "target: velzip <= 1.05x of xz -d" "" "" "" ""
row "velzip peak KiB / limit (file + 32 MiB)" "$mem" "$limit" "" ""
