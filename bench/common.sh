# Sourced by the benchmark scripts with the build folder as $1: strict mode,
# the shared inputs (made once under $BENCH_DATA, default
# /tmp/velzip-bench-data), a scratch folder $tmp removed on exit, and the
# timing and table helpers.
set -euo pipefail
build=${1:?usage: $0 BUILD_DIR}
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

make_inputs
tmp=$(mktemp -d /tmp/velzip-bench.XXXXXX)
# Extracted trees go to memory (/dev/shm) where there is one: on disk, the
# time is mostly the page cache's writeback of earlier runs, which no tool
# controls and which varies by half from run to run.
out_root=$tmp
[ -d /dev/shm ] && [ -w /dev/shm ] && out_root=$(mktemp -d /dev/shm/velzip-bench.XXXXXX)
trap 'rm -rf "$tmp" "$out_root"' EXIT
export build tmp TREE LARGE out_root

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

# best COMMAND...: for each shell command line, "wall cpu" seconds on a line
# of its own, each the least of three runs into a fresh $out_root/out (cpu =
# user + system of the command and its children). The commands take turns,
# one run each per round, so a slow spell of a shared machine falls on all of
# them rather than on whichever ran then.
best() {
  local -a runs=()
  local i line
  for _ in 1 2 3; do
    for i in $(seq 0 $(($# - 1))); do
      rm -rf "$out_root/out"
      line=$(/usr/bin/time -f '%e %U %S' sh -c "${@:i+1:1}" 2>&1 >/dev/null | tail -1)
      case $line in [0-9]*) runs[i]+="$line;" ;; *) echo "FAILED: ${@:i+1:1}" >&2; return 1 ;; esac
    done
  done
  rm -rf "$out_root/out"
  for i in $(seq 0 $(($# - 1))); do
    python3 -c "
r = [list(map(float, x.split())) for x in '${runs[i]}'.split(';') if x]
print(f'{min(a for a, _, _ in r):.3f} {min(u + s for _, u, s in r):.3f}')"
  done
}

# walls COMMAND...: W[i] = the best wall seconds of the i-th command (see best).
walls() {
  mapfile -t W < <(best "$@" | cut -d' ' -f1)
  [ "${#W[@]}" -eq $# ] || { echo "FAILED: a timed command" >&2; exit 1; }
}

# restores_tree COMMAND: runs an extraction into $out_root/out once; stops the
# benchmark unless it restored $TREE byte for byte.
restores_tree() {
  sh -c "$1" >/dev/null
  diff -r "$TREE" "$out_root/out" >/dev/null || { echo "FAILED: extracted tree differs" >&2; exit 1; }
  rm -rf "$out_root/out"
}

tree_files() { find "$TREE" -type f | wc -l; }

# ratio A B: A/B as "1.23x" (n/a when B is zero, as on tiny inputs).
ratio() { python3 -c "print(f'{$1/$2:.2f}x' if $2 else 'n/a')"; }

row() { printf '%-44s %10s %10s %10s %8s\n' "$@"; }

# The tool as users run it. OLD_TOOL, when set, is an earlier build of it
# (one thread, no -j), measured in the same run for the rows that must be
# no worse than before.
TOOL=$build/tools/velzip/velzip
OLD_TOOL=${OLD_TOOL:-}
export TOOL OLD_TOOL

# verdict RATIO LIMIT: "ok" when RATIO (e.g. 0.53x) is at most LIMIT, else "MISS".
verdict() { python3 -c "print('ok' if float('${1%x}') <= float('$2') else 'MISS')"; }

# target LABEL OURS PEERS LIMIT: one row of a target table, the ratio of two
# measurements and whether it meets LIMIT (a ratio).
target() {
  local r
  r=$(ratio "$2" "$3")
  printf '%-52s %9s %9s %7s %7s %5s\n' "$1" "$2" "$3" "$r" "<=$4x" "$(verdict "$r" "$4")"
}
target_head() { printf '%-52s %9s %9s %7s %7s %5s\n' "$1" velzip peer ratio target ""; }
