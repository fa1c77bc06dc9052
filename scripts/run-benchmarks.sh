#!/usr/bin/env bash
# Runs every benchmark program and prints each one's closing summary (ratios against the
# baselines measured in the same run: snprintf, xxd, zlib), then the echo benchmark (portwren's
# echo client and server against a raw echo, over socat and over a direct pseudo-terminal pair).
# Usage: scripts/run-benchmarks.sh <build/native/bench directory>
set -euo pipefail
dir=${1:?usage: run-benchmarks.sh <bench build directory>}
status=0
for bench in "$dir"/*_bench; do
  [ -x "$bench" ] || continue
  echo "=== $(basename "$bench")"
  "$bench" --benchmark_min_time=0.2 || status=1
  echo
done
if [ -x "$dir/echo_raw" ]; then
  echo "=== echo benchmark"
  bash "$(dirname "$0")/echo-benchmark.sh" "$dir/echo_raw" "$dir/../src/portwren" || status=1
fi
exit $status
