#!/usr/bin/env bash
# Memory of extracting one format-1 file of 5 GiB: the payload is decoded
# into the file in pieces, so memory must not grow with the file's size.
. "$(dirname "$0")/common.sh"
out_root=$tmp  # 5 GiB: on disk, not in memory
size=$((5 * 1024 * 1024 * 1024))

# Zeros with a fast preset: any LZMA2 stream with the format's property
# byte decodes, and making 5 GiB of real data would dominate the run.
truncate -s "$size" "$tmp/huge"
{ printf '\030'; xz --format=raw --lzma2=preset=0,dict=16MiB -T1 -c "$tmp/huge"; } > "$tmp/payload"
rm -f "$tmp/huge"
python3 - "$tmp/payload" "$tmp/huge.vz" "$size" <<'PY'
import sys, zipfile
payload, archive, size = sys.argv[1], sys.argv[2], sys.argv[3]
info = zipfile.ZipInfo("huge")
info.compress_type = zipfile.ZIP_STORED
info.external_attr = 0o100644 << 16
# The size text belongs in the local header only; zipfile writes one extra
# field for both, so the central copy is blanked afterwards.
info.extra = size.encode() + b"\0"
with zipfile.ZipFile(archive, "w") as z:
    z.writestr(info, open(payload, "rb").read())
data = bytearray(open(archive, "rb").read())
at = data.rfind(b"PK\x01\x02")
n, m = int.from_bytes(data[at + 28:at + 30], "little"), int.from_bytes(data[at + 30:at + 32], "little")
data[at + 46 + n:at + 46 + n + m] = b"\0" * m  # an unknown block of zeros
open(archive, "wb").write(data)
PY

echo "== format-1 extraction of one $((size / 1073741824)) GiB file =="
read -r wall cpu < <(best "'$TOOL' -q extract -j 1 '$tmp/huge.vz' '$tmp/out'")
mem=$(peak_kib "$TOOL" -q extract -j 1 "$tmp/huge.vz" "$tmp/out")
[ "$(stat -c %s "$tmp/out/huge")" = "$size" ] || { echo "FAILED: wrong size" >&2; exit 1; }
rm -rf "$tmp/out"
row "" "wall s" "cpu s" "peak MiB" "target"
row "velzip (format 1)" "$wall" "$cpu" "$((mem / 1024))" "< 64"
