#!/usr/bin/env bash
# Installs the build into a fresh prefix and builds an outside C program against it
# twice: through pkg-config and through CMake's find_package, both as strict C99 (the
# public header must compile as plain C). Each must run.
# Usage: install_test.sh BUILD_DIR CONSUMER_SOURCE_DIR
set -euo pipefail
build=$1 consumer=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix

cmake --install "$build" --prefix "$prefix" >/dev/null
libdir=$(dirname "$(find "$prefix" -name 'libhylorn.so.1' | head -1)")
for f in include/hylorn.h; do [ -f "$prefix/$f" ] || { echo "missing $f"; exit 1; }; done
[ -L "$libdir/libhylorn.so" ] && [ -L "$libdir/libhylorn.so.1" ] || { echo "missing SONAME links"; exit 1; }

echo "== pkg-config"
export PKG_CONFIG_PATH=$libdir/pkgconfig
cc -std=c99 -pedantic -Wall -Wextra -Werror -o "$work/by_pkgconfig" "$consumer/main.c" \
  $(pkg-config --cflags --libs hylorn)
LD_LIBRARY_PATH=$libdir "$work/by_pkgconfig"

echo "== find_package"
cmake -S "$consumer" -B "$work/cmake-build" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/cmake-build" >/dev/null
LD_LIBRARY_PATH=$libdir "$work/cmake-build/consumer"
