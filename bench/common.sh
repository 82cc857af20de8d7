# Sourced by the benchmark scripts: shared inputs and timing helpers.
# Inputs are made once under $BENCH_DATA (default /tmp/velzip-bench-data).
BENCH_DATA=${BENCH_DATA:-/tmp/velzip-bench-data}
TREE=$BENCH_DATA/tree     # ~116 MB of headers, ~8,000 files
LARGE=$BENCH_DATA/large   # one 64 MB file, text and binaries mixed

make_inputs() {
  mkdir -p "$BENCH_DATA"
  if [ ! -d "$TREE" ]; then
    mkdir -p "$TREE.part"
    # The first 116 MB of /usr/include in name order, folders kept.
    python3 - "$TREE.part" <<'PY'
import os, shutil, sys
dest, budget = sys.argv[1], 116 * 1000 * 1000
names = sorted(os.path.relpath(os.path.join(d, f), "/usr/include")
               for d, _, fs in os.walk("/usr/include") for f in fs)
for name in names:
    src = os.path.join("/usr/include", name)
    if os.path.islink(src) or not os.path.isfile(src): continue
    size = os.path.getsize(src)
    if size > budget: break
    budget -= size
    os.makedirs(os.path.dirname(os.path.join(dest, name)), exist_ok=True)
    shutil.copy2(src, os.path.join(dest, name))
PY
    mv "$TREE.part" "$TREE"
  fi
  if [ ! -f "$LARGE" ]; then
    { find /usr/include -type f -print0 | sort -z | xargs -0 cat;
      find /usr/bin -type f -print0 | sort -z | xargs -0 cat; } 2>/dev/null |
      head -c $((64 * 1024 * 1024)) > "$LARGE.part" || true
    mv "$LARGE.part" "$LARGE"
  fi
}

# seconds CMD...: wall time of one run, printed with 3 decimals.
seconds() {
  local t0 t1
  t0=$(date +%s.%N)
  "$@" >/dev/null 2>&1 || { echo "FAILED: $*" >&2; return 1; }
  t1=$(date +%s.%N)
  python3 -c "print(f'{$t1-$t0:.3f}')"
}

# peak_kib CMD...: peak resident memory of one run, in KiB.
peak_kib() {
  /usr/bin/time -f '%M' "$@" 2>&1 >/dev/null | tail -1
}

ratio() { python3 -c "print(f'{$1/$2:.2f}x')"; }

row() { printf '%-44s %10s %10s %10s %8s\n' "$@"; }
