#!/usr/bin/env bash
# Installs the built tree into a scratch prefix, links a tiny host program
# against it twice (through pkg-config and through find_package(velzip)),
# runs the installed velzip tool and finds its manual page and completion.
set -euo pipefail
build=$1
src=$(cd "$(dirname "$0")" && pwd)
prefix=$(mktemp -d /tmp/velzip-install.XXXXXX)
trap 'rm -rf "$prefix"' EXIT

cmake --install "$build" --prefix "$prefix" >/dev/null
libdir=$(dirname "$(find "$prefix" -name velzip.pc | head -1)")/..

# pkg-config
PKG_CONFIG_PATH=$libdir/pkgconfig c++ -std=c++17 "$src/host.cpp" -o "$prefix/host-pc" \
  $(PKG_CONFIG_PATH=$libdir/pkgconfig pkg-config --cflags --libs velzip)
LD_LIBRARY_PATH=$libdir "$prefix/host-pc"
# the C header alone compiles as C99
cc -std=c99 -Wall -Werror -c -x c - -o /dev/null -I"$prefix/include" <<'C'
#include <velzip/velzip.h>
int main(void) { return velzipSetLogger(0, 0); }
C

# find_package
mkdir -p "$prefix/cm"
cmake -S "$src" -B "$prefix/cm" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$prefix/cm" >/dev/null
LD_LIBRARY_PATH=$libdir "$prefix/cm/host"

# the installed tool finds the installed library through its own run path
version=$(env -u LD_LIBRARY_PATH "$prefix/bin/velzip" --version)
[[ $version == "velzip "* ]] || { echo "install: bin/velzip --version printed: $version" >&2; exit 1; }
[[ $(env -u LD_LIBRARY_PATH ldd "$prefix/bin/velzip") == *"$prefix/"*libvelzip* ]] ||
  { echo "install: bin/velzip does not load the library installed beside it" >&2; exit 1; }
# the manual page, where man finds it
page=$prefix/share/man/man1/velzip.1
[[ -f $page ]] || { echo "install: no manual page at $page" >&2; exit 1; }
if command -v man >/dev/null; then
  [[ $(MANPATH=$prefix/share/man: MANWIDTH=80 man -P cat velzip 2>/dev/null) == *"velzip - pack folders"* ]] ||
    { echo "install: man velzip does not show the installed page" >&2; exit 1; }
fi

# the bash completion, where bash-completion looks for it, completing commands
completion=$prefix/share/bash-completion/completions/velzip
[[ -f $completion ]] || { echo "install: no bash completion at $completion" >&2; exit 1; }
words=$(bash -c 'source "$1"; COMP_WORDS=(velzip ""); COMP_CWORD=1; _velzip; echo "${COMPREPLY[*]}"' \
  _ "$completion")
[[ $words == "compress extract test list gzip help" ]] ||
  { echo "install: the completion offers: $words" >&2; exit 1; }

echo "install: pkg-config and find_package hosts link and run; $version runs; man page and completion installed"
