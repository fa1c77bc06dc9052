#!/usr/bin/env bash
# A first look at portwren, as a new user would take it: the usage, then a few command lines.
# Usage: scripts/demo.sh <path to the portwren binary>
set -uo pipefail

exe=${1:?usage: demo.sh <portwren binary>}
if [ ! -x "$exe" ]; then
  echo "demo: $exe is not an executable" >&2
  exit 2
fi

step() {
  echo
  echo "=== $1"
  shift
  echo "\$ portwren${*:+ $*}"
  "$exe" "$@"
  echo "(exit code $?)"
}

step "Without arguments portwren prints its usage and ends with exit code 1."

step "A value out of range is refused; every bad value is named at once." \
  COM3 -b 8124000 -c 0 -K 11

step "An unknown option is refused the same way." \
  COM3 --bogus-option

step "The example from the usage text is accepted (exit code 0)." \
  COM3 -b 20 -c 4000 --rtoi=-1 --rtom=-1 --rtoc=3000
