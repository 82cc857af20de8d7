#!/usr/bin/env bash
# Payload codec vs xz (raw LZMA2, preset 5, 16 MiB dictionary, one thread).
. "$(dirname "$0")/common.sh"
xz_enc() { xz --format=raw --lzma2=preset=5,dict=16MiB -T1 -c "$1" > "$2"; }
xz_dec() { xz --format=raw --lzma2=dict=16MiB -d -c "$1" > /dev/null; }

echo "== payload codec: 64 MB file =="
# Two rounds, velzip and xz taking turns; the faster of each.
least() { python3 -c "print(min(float(x) for x in '$*'.split()))"; }
for round in 1 2; do
  read -r _ _ _ in _ out _ enc[round] _ dec[round] < <("$build/bench/bench_codec" "$LARGE")
  xe[round]=$(seconds xz_enc "$LARGE" "$tmp/large.xz")
  xd[round]=$(seconds xz_dec "$tmp/large.xz")
done
enc=$(least "${enc[@]}") dec=$(least "${dec[@]}") xe=$(least "${xe[@]}") xd=$(least "${xd[@]}")
xsize=$(stat -c %s "$tmp/large.xz")
row "" "velzip" "xz" "ratio" ""
row "encode seconds" "$enc" "$xe" "$(ratio "$enc" "$xe")" "(<=1.03x)"
row "decode seconds" "$dec" "$xd" "$(ratio "$dec" "$xd")" ""
row "bytes out" "$out" "$xsize" "$(ratio "$out" "$xsize")" ""

echo "== payload codec: tree of small files, one payload each =="
(cd "$TREE" && find . -type f | sort) | sed "s|^\.|$TREE|" > "$tmp/list"
read -r _ files _ in _ out _ enc _ dec < <("$build/bench/bench_codec" - < "$tmp/list")
row "files / bytes in" "$files" "$in" "" ""
row "encode seconds (all files)" "$enc" "" "" ""
row "decode seconds (all files)" "$dec" "" "" ""
row "bytes out" "$out" "" "" ""
