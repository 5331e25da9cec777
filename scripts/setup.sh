#!/usr/bin/env bash
# Installs the Debian packages the build, the tests, the demo and the benchmarks need,
# when they are missing. Pass "bench" to add the benchmark peers. The Python package uses
# Debian's own interpreter, /usr/bin/python3, with these packages (no other registry).
set -euo pipefail
packages=(cmake ninja-build ccache g++ clang libclang-rt-14-dev pkg-config python3 libgtest-dev libpng-dev
  python3-numpy python3-pytest python3-pil python3-skimage python3-setuptools python3-pip)
if [ "${1:-}" = bench ]; then
  packages+=(libbenchmark-dev libopencv-dev libfftw3-dev python3-matplotlib python3-opencv)
fi
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "installing: ${missing[*]}"
  sudo=""
  [ "$(id -u)" -ne 0 ] && sudo=sudo
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "${missing[@]}" > /dev/null
fi
