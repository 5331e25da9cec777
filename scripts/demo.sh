#!/usr/bin/env bash
# Builds the library and its demonstration, then runs it: PNG files land in demo-output/.
# Then the command line equalises a real photograph (astronaut.png from python3-skimage).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake -S . -B build -G Ninja -DKELI_BUILD_TESTS=OFF -DKELI_BUILD_EXAMPLES=ON > /dev/null
cmake --build build --target keli_demo
./build/examples/keli_demo demo-output
photo=$(/usr/bin/python3 -c "import os, skimage; print(os.path.join(skimage.data_dir, 'astronaut.png'))")
KELI_LIBRARY=build/libkeli.so PYTHONPATH=python /usr/bin/python3 -m keli equalize "$photo" demo-output/astronaut_equalized.png
