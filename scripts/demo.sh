#!/usr/bin/env bash
# The echo test over a virtual null-modem (two linked pseudo-terminals from socat): a portwren echo
# server on one end, a portwren client on the other sending a few megabytes and checking every
# echoed chunk; then a short run through a relay that damages one byte, which the client reports
# and fails on. After that, a first look at the plain keys: the usage, a write on one end read on
# the other, the read log, and a read that times out and is cancelled. Keys come from pipes, as in
# any scripted run. Every process started here is ended here, also on Ctrl+C.
# Usage: scripts/demo.sh <path to the portwren binary> [<path to the fault relay>]
set -uo pipefail

exe=${1:?usage: demo.sh <portwren binary> [fault relay]}
relay=${2:-$(dirname "$exe")/../tests/fault_relay}
if [ ! -x "$exe" ]; then
  echo "demo: $exe is not an executable" >&2
  exit 2
fi
exe=$(realpath "$exe")
[ -x "$relay" ] || { echo "demo: the fault relay $relay is not built (make native builds it)" >&2; exit 2; }
command -v socat >/dev/null || { echo "demo: socat is not installed (make demo installs it)" >&2; exit 2; }
relay=$(realpath "$relay")

source "$(dirname "${BASH_SOURCE[0]}")/process_scope.sh"

say() { printf '\n=== %s\n' "$*"; }

# Waits up to 10 s for a text in a file.
wait_for() {
  for _ in $(seq 100); do grep -aq "$1" "$2" 2>/dev/null && return 0; sleep 0.1; done
  echo "demo: no \"$1\" in $2" >&2
  return 1
}

# An echo server on `far`, keys from a FIFO (fd 3), output to server.out.
start_server() {
  rm -f "$work/server.keys" "$work/server.out"
  mkfifo "$work/server.keys"
  (cd "$work" && exec "$exe" "$1" --first-key=S "${@:2}" <"$work/server.keys" >"$work/server.out" 2>&1) &
  server_pid=$!
  pids+=("$server_pid")
  exec 3>"$work/server.keys"
  wait_for "waiting client" "$work/server.out"
}

# '0' stops the server; the end of its keys then quits it.
stop_server() {
  printf '0' >&3
  wait_for "Echo server stopped" "$work/server.out"
  exec 3>&-
  wait "$server_pid"
}

socat pty,raw,echo=0,link="$work/left" pty,raw,echo=0,link="$work/right" 2>/dev/null &
pids+=($!)
for _ in $(seq 50); do [ -e "$work/left" ] && [ -e "$work/right" ] && break; sleep 0.1; done
left=$work/left
right=$work/right

say "Echo test: a server on the right end (key S), a client on the left (key C, urge mode)."
echo "\$ portwren $right --first-key=S          (in the background, '0' stops it)"
start_server "$right" || exit 1
sed -n '/Starting echo server/p' "$work/server.out"
echo "\$ printf 'C' | PORTWREN_PRINT_LESS=1 portwren $left -k 64 -K 2048 -m 32000000"
printf 'C' | PORTWREN_PRINT_LESS=1 "$exe" "$left" -k 64 -K 2048 -m 32000000 | sed -n '/Got\|First-key\|Using/,/Echo test/p'
stop_server
echo "--- what the server printed:"
sed -n '/Starting echo server/,/Echo server stopped/p' "$work/server.out"

say "The same through a relay that flips one bit of chunk 5's echo (byte 100 of that chunk)."
"$relay" --pty "$work/near" "$work/far" --fault flip:2@c5+100/ba >"$work/relay.out" 2>&1 &
relay_pid=$!
pids+=("$relay_pid")
wait_for "relay ready" "$work/relay.out" || exit 1
start_server "$work/far" -K 4000 || exit 1
echo "\$ printf 'C' | PORTWREN_PRINT_LESS=1 portwren near -k 256 -K 4000 -m 1000000 --manual-intervene-errcli"
(cd "$work" && printf 'C' | PORTWREN_PRINT_LESS=1 "$exe" near -k 256 -K 4000 -m 1000000 --manual-intervene-errcli) |
  sed -n '/Got\|First-key\|Using/,/Echo test/p'
echo "--- the relay said:"
grep -a "relay:" "$work/relay.out"
echo "--- echo_in.partial.log (first lines):"
head -n 8 "$work/echo_in.partial.log"
stop_server
kill "$relay_pid" 2>/dev/null
wait "$relay_pid" 2>/dev/null

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
pids+=("$reader")
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
