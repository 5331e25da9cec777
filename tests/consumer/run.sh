#!/bin/sh
# Installs the built tree into a fresh prefix, then builds and runs a C program against it
# twice: with pkg-config and as a CMake package.
set -eu
build=$1
here=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --install "$build" --prefix "$work/prefix" > /dev/null
libdir=$(ls -d "$work"/prefix/lib*/pkgconfig | head -n 1 | xargs dirname)
export PKG_CONFIG_PATH="$libdir/pkgconfig"
cc -std=c99 -Wall -Wextra -pedantic -Werror $(pkg-config --cflags keli) "$here/main.c" \
   $(pkg-config --libs keli) -Wl,-rpath,"$libdir" -o "$work/consumer_pc"
"$work/consumer_pc"
cmake -S "$here" -B "$work/cmake" -G Ninja -DCMAKE_PREFIX_PATH="$work/prefix" > /dev/null
cmake --build "$work/cmake" > /dev/null
"$work/cmake/consumer"
