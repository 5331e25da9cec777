#!/usr/bin/env bash
# Runs the benchmarks against the open peers and writes bench/report.md and bench/report.png.
#
#   bash scripts/bench.sh            every row; refreshes the committed report
#   bash scripts/bench.sh REGEX      only exports whose name starts with a match of REGEX
#                                    (keliAbs_16s); the report goes to build-bench/report.md
#
# Each benchmark binary runs twice: once with OpenCV held to SSE4.2-level code (the peer that
# plays by keli's rules) and once with OpenCV on its native path (AVX2/AVX-512 where present).
# keli's rows run in both so that every ratio compares two timings of the same process.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh bench

build=build-bench
filter="${1:-kel[ir]}"
if [ $# -gt 0 ]; then
  report=$build/report.md
  chart=$build/report.png
else
  report=bench/report.md
  chart=bench/report.png
fi

cmake -S . -B $build -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DKELI_BUILD_BENCH=ON -DKELI_BUILD_TESTS=OFF -DKELI_BUILD_EXAMPLES=OFF > /dev/null
cmake --build $build -j 2

results=$build/bench-results
rm -rf $results
mkdir -p $results
# OpenCV 4.6 names the AVX-512 dispatch level "AVX512-SKX" in this variable; the spelling with
# an underscore is rejected as unknown and would leave the AVX-512 kernels on.
sse42_off="AVX512-SKX,AVX2,AVX,FP16"
# Repetitions of all rows run interleaved at random, so that a busy spell of the machine does
# not fall on one row alone; report.py takes the fastest repetition of each row.
run=(--benchmark_min_time=0.05 --benchmark_repetitions=5 --benchmark_enable_random_interleaving=true
     --benchmark_report_aggregates_only=true --benchmark_out_format=json)
for bin in $build/bench/keli_bench_*; do
  [ -x "$bin" ] || continue
  name=$(basename "$bin")
  echo "== $name, OpenCV at SSE4.2"
  OPENCV_CPU_DISABLE=$sse42_off "$bin" "${run[@]}" \
    --benchmark_filter="^([a-z0-9]+:[^/]*/|memcpy/|memset/)?($filter)" \
    --benchmark_out=$results/$name.sse42.json > /dev/null
  echo "== $name, OpenCV native"
  env -u OPENCV_CPU_DISABLE "$bin" "${run[@]}" \
    --benchmark_filter="^(opencv:[^/]*/)?($filter)" \
    --benchmark_out=$results/$name.native.json > /dev/null
done
# The chart needs Debian's matplotlib; a python3 earlier on PATH (a pyenv or venv) may lack it.
py=python3
if ! python3 -c "import matplotlib" 2> /dev/null && [ -x /usr/bin/python3 ]; then py=/usr/bin/python3; fi
$py bench/report.py --results $results --report $report --chart $chart
echo "wrote $report and $chart"
