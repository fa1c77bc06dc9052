#!/usr/bin/env bash
# Echo stress run: a portwren echo server on one end of a socat null-modem pair, a portwren client
# in urge mode with 512-byte chunks on the other, for the given number of seconds. A stall (no
# chunk came back for 5 s) fails the run at once; at the end the client is stopped with '0' and
# must report success, the server with '0' and must report no error.
# Usage: scripts/stress.sh <portwren binary> [seconds, default 600]
set -uo pipefail

exe=${1:?usage: stress.sh <portwren binary> [seconds]}
seconds=${2:-600}
stall_limit=5
[ -x "$exe" ] || { echo "stress: $exe is not an executable" >&2; exit 2; }
command -v socat >/dev/null || { echo "stress: socat is not installed" >&2; exit 2; }

source "$(dirname "${BASH_SOURCE[0]}")/process_scope.sh"

fail() {
  echo "stress: FAIL: $*"
  echo "--- client (last lines):"; tail -n 15 "$work/client.out"
  echo "--- server (last lines):"; tail -n 15 "$work/server.out"
  exit 1
}

socat pty,raw,echo=0,link="$work/near" pty,raw,echo=0,link="$work/far" 2>"$work/socat.log" &
pids+=($!)
for _ in $(seq 50); do [ -e "$work/near" ] && [ -e "$work/far" ] && break; sleep 0.1; done
[ -e "$work/near" ] && [ -e "$work/far" ] || fail "socat made no pair"

# Keys come through FIFOs held open here, so each program reads its '0' when it is sent.
mkfifo "$work/server.keys" "$work/client.keys"
# Line-buffered output, so the statistics can be watched while the run goes on.
line_out=()
command -v stdbuf >/dev/null && line_out=(stdbuf -oL)
# stdbuf's preload comes ahead of the AddressSanitizer runtime of the asan build, which refuses
# that unless told.
export ASAN_OPTIONS="${ASAN_OPTIONS:+$ASAN_OPTIONS:}verify_asan_link_order=0"
"${line_out[@]}" "$exe" "$work/far" -K 512 --first-key=S <"$work/server.keys" >"$work/server.out" 2>&1 &
server_pid=$!
pids+=($server_pid)
exec 3>"$work/server.keys"
for _ in $(seq 100); do grep -q "waiting client" "$work/server.out" && break; sleep 0.1; done
grep -q "waiting client" "$work/server.out" || fail "the server did not start"

"${line_out[@]}" "$exe" "$work/near" -k 512 -K 512 --first-key=C <"$work/client.keys" >"$work/client.out" 2>&1 &
client_pid=$!
pids+=($client_pid)
exec 4>"$work/client.keys"

echo "stress: urge mode, 512-byte chunks, ${seconds} s over socat ($work)"
last_count=0
start=$SECONDS
last_change=$((start + 10))  # the first chunks may take a while to come (start-up, port clearing)
next_note=$((start + 60))
while [ $((SECONDS - start)) -lt "$seconds" ]; do
  sleep 1
  # "... secs, chunks: N, ..." lines come once a second while chunks come back.
  count=$(grep -a -o 'secs, chunks: [0-9]*' "$work/client.out" | tail -n 1 | grep -o '[0-9]*$')
  count=${count:-0}
  if [ "$count" != "$last_count" ]; then
    last_count=$count
    last_change=$SECONDS
  elif [ $((SECONDS - last_change)) -ge "$stall_limit" ]; then
    fail "stall: no chunk came back for ${stall_limit} s (at $((SECONDS - start)) s, $count chunks)"
  fi
  grep -aq "Echo test fail" "$work/client.out" && fail "the client failed"
  if [ "$SECONDS" -ge "$next_note" ]; then
    echo "stress: $((SECONDS - start)) s, $count chunks: $(grep -a 'secs, chunks' "$work/client.out" | tail -n 1)"
    next_note=$((next_note + 60))
  fi
done

printf '0' >&4
for _ in $(seq 300); do grep -aq "Echo test success\|Echo test fail" "$work/client.out" && break; sleep 0.1; done
grep -aq "Echo test success" "$work/client.out" || fail "the client did not end with success after '0'"
printf '0' >&3
for _ in $(seq 100); do grep -aq "Echo server stopped" "$work/server.out" && break; sleep 0.1; done
grep -aq "Echo server stopped" "$work/server.out" || fail "the server did not stop on '0'"
if grep -aE "Wrong crc32|Unexpect|Error:|Received wrong data|launch error|fail" "$work/server.out"; then fail "the server reported an error"; fi
exec 3>&- 4>&-  # the end of the keys reads as ESC: both quit
# Both must end by themselves and cleanly (a sanitizer's report changes the exit code).
wait "$client_pid"; client_rc=$?
wait "$server_pid"; server_rc=$?
[ "$client_rc" = 0 ] && [ "$server_rc" = 0 ] || fail "exit codes: client $client_rc, server $server_rc"
echo "stress: PASS: $(grep -a 'All echo bytes received' "$work/client.out" | tail -n 1 | sed 's/^.*] //')"
echo "stress: server: $(grep -a 'Echoed' "$work/server.out" | tail -n 1 | sed 's/^.*] //')"
