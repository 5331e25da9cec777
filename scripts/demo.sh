#!/usr/bin/env bash
# Builds the library and its demonstration, then runs it: PNG files land in demo-output/.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake -S . -B build -G Ninja -DKELI_BUILD_TESTS=OFF -DKELI_BUILD_EXAMPLES=ON > /dev/null
cmake --build build --target keli_demo
./build/examples/keli_demo demo-output
