#!/usr/bin/env bash
# Fuzzes every export for the given number of seconds (default 60) in the sanitizer build
# (clang, AddressSanitizer, UndefinedBehaviorSanitizer, libFuzzer), starting from the committed
# seeds, then prints the executions, the exports reached and the findings (crash inputs with
# their reports, under build-sanitize/fuzz/).
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
bash scripts/setup.sh
build=build-sanitize
cmake -S . -B "$build" -G Ninja -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DKELI_SANITIZE=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DKELI_BUILD_TESTS=ON -DKELI_BUILD_EXAMPLES=ON > /dev/null
cmake --build "$build" -j2 --target keli_fuzz_exports
out=$build/fuzz
mkdir -p "$out/corpus"
rm -rf "$out/findings" && mkdir -p "$out/findings"
log=$out/run.log
reached=$out/reached.txt
rm -f "$reached"
# One worker process at a time (the machine's other core stays free), restarted after a
# finding so the run goes on; the findings are the inputs libFuzzer saves. Allocations the
# library is asked for beyond 8 GiB come back null instead of ending the run.
set +e
KELI_FUZZ_REACHED=$reached ASAN_OPTIONS=detect_leaks=0:allocator_may_return_null=1:max_allocation_size_mb=8192 \
  "$build/tests/fuzz/keli_fuzz_exports" "$out/corpus" tests/fuzz/corpus \
  -fork=1 -ignore_crashes=1 -ignore_timeouts=1 -ignore_ooms=1 \
  -max_total_time="$seconds" -timeout=20 -rss_limit_mb=3072 -malloc_limit_mb=16384 -max_len=512 \
  -artifact_prefix="$out/findings/" > "$log" 2>&1
status=$?
set -e
runs=$(grep -a -o '^#[0-9]*' "$log" | tail -1 | tr -d '#')
total=$( [ -f "$reached" ] && awk 'NR == 1 {print $2}' "$reached" || echo '?')
called=$( [ -f "$reached" ] && grep -c ' ok$\| refused$' "$reached" || echo 0)
ok=$( [ -f "$reached" ] && grep -c ' ok$' "$reached" || echo 0)
# Crash inputs are the findings: a sanitizer report, a fault or a failed check. Inputs that ran
# slowly or past the time limit are listed apart: a large region is slow under the sanitizers
# without being wrong, so look at them, but they do not fail the run.
findings=$(find "$out/findings" -name 'crash-*' -o -name 'leak-*' | wc -l)
slow=$(find "$out/findings" -name 'slow-unit-*' -o -name 'timeout-*' | wc -l)
echo "executions: ${runs:-0}"
echo "exports reached: $called of $total ($ok with a successful call)"
echo "findings: $findings (in $out/findings; libFuzzer exit $status)"
echo "slow inputs: $slow (over 10 s each; not findings)"
if [ "$findings" -ne 0 ] || [ "$status" -ne 0 ]; then
  grep -a -A6 'FUZZ FINDING\|ERROR: AddressSanitizer\|runtime error\|ERROR: libFuzzer' "$log" | head -60
  exit 1
fi
