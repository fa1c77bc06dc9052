#!/usr/bin/env bash
# Lists the sources that differ from the tree's .clang-format and fails when there are any;
# with --fix, formats them in place instead.
set -euo pipefail
cd "$(dirname "$0")/.."
mapfile -t files < <(git ls-files -- '*.cpp' '*.h')
if [ "${1:-}" = "--fix" ]; then
  clang-format -i "${files[@]}"
  exit 0
fi
bad=()
for f in "${files[@]}"; do
  clang-format --dry-run --Werror "$f" >/dev/null 2>&1 || bad+=("$f")
done
if [ ${#bad[@]} -gt 0 ]; then
  echo "Not formatted by the tree's .clang-format (run 'make format'):"
  printf '  %s\n' "${bad[@]}"
  exit 1
fi
