#!/usr/bin/env bash
# Runs every fuzzer of the fuzz build for a set time on its kept corpus, keeps the corpus small by
# merging it, and prints one line per target: executions and findings (crashes, leaks, timeouts,
# out-of-memory inputs, saved under the build tree).
#   run-fuzzers.sh FUZZ_BIN_DIR CORPUS_DIR SECONDS
set -uo pipefail
bin_dir=$1
corpus_root=$2
seconds=$3
findings_root=$bin_dir/findings
status=0
for fuzzer in "$bin_dir"/*_fuzz; do
  name=$(basename "$fuzzer")
  corpus=$corpus_root/$name
  findings=$findings_root/$name
  rm -rf "$findings"
  mkdir -p "$corpus" "$findings"
  log=$findings/run.log
  "$fuzzer" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 \
    -artifact_prefix="$findings/" "$corpus" $(ls -d "$corpus_root/../regressions/$name" 2>/dev/null) >"$log" 2>&1
  executions=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
  found=$(find "$findings" -maxdepth 1 -name 'crash-*' -o -maxdepth 1 -name 'leak-*' -o -maxdepth 1 -name 'timeout-*' -o -maxdepth 1 -name 'oom-*' | wc -l)
  # Keep only the inputs that add coverage.
  merged=$(mktemp -d)
  "$fuzzer" -merge=1 "$merged" "$corpus" >/dev/null 2>&1 && rm -rf "$corpus" && mv "$merged" "$corpus" || rm -rf "$merged"
  echo "$name: executions ${executions:-0}, findings $found, corpus $(ls "$corpus" | wc -l) inputs"
  [ "$found" -eq 0 ] || status=1
done
exit $status
