#!/usr/bin/env bash
# Builds everything and runs all tests. With --sanitize, the same suite under
# AddressSanitizer and UndefinedBehaviorSanitizer in a separate build folder, built by clang so
# that the same build also holds the fuzz harness, which then runs for a minute.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
build=build
flags=(-DKELI_BUILD_TESTS=ON -DKELI_BUILD_EXAMPLES=ON)
if [ "${1:-}" = --sanitize ]; then
  build=build-sanitize
  flags+=(-DKELI_SANITIZE=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo)
  flags+=(-DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++)
fi
cmake -S . -B "$build" -G Ninja "${flags[@]}" > /dev/null
cmake --build "$build"
(cd "$build" && ctest --output-on-failure)
if [ "${1:-}" = --sanitize ]; then
  bash scripts/fuzz.sh 60
fi
