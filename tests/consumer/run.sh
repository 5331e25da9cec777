#!/bin/sh
# Installs the built tree into a fresh prefix, then builds and runs a C program against it
# twice: with pkg-config and as a CMake package; when the Python package was installed, its
# command line must find the installed library by itself.
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
if [ -x "$work/prefix/bin/keli" ]; then
  env -u KELI_LIBRARY "$work/prefix/bin/keli" --help | grep -q equalize
  python=$(sed -n 's/.* exec \([^ ]*\) -m keli.*/\1/p' "$work/prefix/bin/keli")
  site=$(ls -d "$work"/prefix/lib*/python3*/dist-packages | head -n 1)
  env -u KELI_LIBRARY PYTHONPATH="$site" "$python" -c "import keli; print(keli.lib.path)" |
    grep -q "^$(readlink -f "$work")/prefix/"
fi
