#!/usr/bin/env bash
# Runs both examples on a small tree and checks what comes back, and that
# the README shows each example as it is.
#   run.sh CXX_EXAMPLE C_EXAMPLE README
set -euo pipefail
cxx=$1 c=$2 readme=$3
src=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d /tmp/velzip-examples.XXXXXX)
trap 'rm -rf "$work"' EXIT

mkdir -p "$work/tree/docs/deep" "$work/tree/empty"
seq 30000 >"$work/tree/docs/numbers.txt"
echo hello >"$work/tree/docs/deep/hello.txt"
printf '#!/bin/sh\n' >"$work/tree/run.sh" && chmod 755 "$work/tree/run.sh"
ln -s docs/deep "$work/tree/link"
xattrs=no
setfattr -n user.note -v kept "$work/tree/docs/deep/hello.txt" 2>/dev/null && xattrs=yes

same() {  # the restored tree matches, links and modes included
  diff -r --no-dereference "$work/tree" "$1"
  [[ $(cd "$work/tree" && find . -printf '%p %m\n' | sort) == $(cd "$1" && find . -printf '%p %m\n' | sort) ]]
}

"$cxx" "$work/tree" "$work/cxx.zip" "$work/cxx-out" >"$work/cxx.log"
grep -q 'docs/numbers.txt$' "$work/cxx.log"
grep -q '^packed .* and unpacked it into ' "$work/cxx.log"
same "$work/cxx-out"
if [[ $xattrs == yes ]]; then
  [[ $(getfattr --absolute-names --only-values -n user.note "$work/cxx-out/docs/deep/hello.txt") == kept ]]
fi

"$c" "$work/tree" "$work/c.zip" "$work/c-out" >"$work/c.log"
grep -q ' docs/numbers.txt$' "$work/c.log"
grep -q 'bytes unpacked from ' "$work/c.log"
same "$work/c-out"

# A failure says why and exits 1.
if "$c" "$work/missing" "$work/m.zip" "$work/m-out" 2>"$work/fail.log"; then
  echo "examples: the C example succeeded on a missing folder" >&2; exit 1
fi

python3 - "$readme" "$src/pack_unpack.cpp" "$src/pack_unpack.c" <<'PY'
import sys
readme = open(sys.argv[1]).read()
for example in sys.argv[2:]:
    if open(example).read() not in readme:
        sys.exit("examples: README.md does not show %s as it is" % example)
PY
echo "examples: both pack and unpack the tree; the README shows them as they are"
