#!/usr/bin/env bash
# A first look at portwren over a virtual null-modem (two linked pseudo-terminals from socat):
# the usage, a write on one end read on the other, the read log, and a read that times out
# and is cancelled. Keys come from a pipe, as in any scripted run.
# Usage: scripts/demo.sh <path to the portwren binary>
set -uo pipefail

exe=${1:?usage: demo.sh <portwren binary>}
if [ ! -x "$exe" ]; then
  echo "demo: $exe is not an executable" >&2
  exit 2
fi
command -v socat >/dev/null || { echo "demo: socat is not installed (make demo installs it)" >&2; exit 2; }

work=$(mktemp -d)
trap 'kill $socat_pid 2>/dev/null; rm -rf "$work"' EXIT
socat pty,raw,echo=0,link="$work/left" pty,raw,echo=0,link="$work/right" 2>/dev/null &
socat_pid=$!
for _ in $(seq 50); do [ -e "$work/left" ] && [ -e "$work/right" ] && break; sleep 0.1; done
left=$work/left
right=$work/right

say() { printf '\n=== %s\n' "$*"; }

say "Without arguments portwren prints its usage and ends with exit code 1 (first lines shown)."
echo "\$ portwren"
"$exe" | head -12
echo "..."

say "A bad command line is refused, every bad value named at once."
echo "\$ portwren COM3 -b 8124000 -c 0"
"$exe" COM3 -b 8124000 -c 0
echo "(exit code $?)"

say "The right end reads 100 bytes (key r, waiting up to 4 s); the left end writes them (key w)"
say "and then reports its buffer counts (key q). The right end logs what it read to a file."
echo "\$ printf 'r' | portwren $right -c 4000 --read-log=read.log   (in the background)"
printf 'r' | "$exe" "$right" -c 4000 --read-log="$work/read.log" >"$work/right.out" 2>&1 &
reader=$!
sleep 0.7
echo "\$ printf 'wq' | PORTWREN_PRINT_LESS=1 portwren $left"
printf 'wq' | PORTWREN_PRINT_LESS=1 "$exe" "$left"
wait $reader
echo
echo "--- what the right end printed:"
cat "$work/right.out"
echo "--- read.log:"
cat "$work/read.log"

say "A read that gets nothing: pending, WAIT_TIMEOUT after 500 ms, CancelIo, error 995."
echo "\$ printf 'r' | PORTWREN_PRINT_LESS=1 portwren $right -b 10 -c 500"
printf 'r' | PORTWREN_PRINT_LESS=1 "$exe" "$right" -b 10 -c 500

say "With -Q 0 a read returns at once with what is buffered (here nothing)."
echo "\$ printf 'r' | PORTWREN_PRINT_LESS=1 portwren $right -Q 0"
printf 'r' | PORTWREN_PRINT_LESS=1 "$exe" "$right" -Q 0
