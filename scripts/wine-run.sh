#!/usr/bin/env bash
# Runs a Windows program under Wine in a throwaway prefix beside it (made once, one maker at a
# time). Used as the emulator of the Windows test programs.
#
# With PORTWREN_WINE_SERIAL=1 the program also gets a null-modem line: a socat pair of
# pseudo-terminals mapped to two COM ports of the prefix, named in PORTWREN_WINE_PORTS
# ("\\.\COM240 \\.\COM241": the port under test, then its far end). Such runs take turns on the
# prefix (PORTWREN_WINEPREFIX names one of their own) and get a wineserver of their own, killed at
# the start and at the end: one left behind by a killed run must not serve the next.
#
# A run that has not ended after PORTWREN_WINE_TIMEOUT seconds (180, well inside ctest's limit) is
# killed and reported as a hang inside Wine: every test bounds its own waits.
set -euo pipefail
exe=$1
shift
prefix=${PORTWREN_WINEPREFIX:-$(cd "$(dirname "$exe")" && pwd)/wine-prefix}
limit=${PORTWREN_WINE_TIMEOUT:-180}
serial=${PORTWREN_WINE_SERIAL:-}
# warn+heap: Wine checks its heap, so a write after free in the program fails near its cause.
export PORTWREN_UNDER_WINE=1 WINEPREFIX=$prefix WINEDEBUG=-all,warn+heap
# No Mono or Gecko prompts, no menu entries, and no mount manager: at every start it maps each
# /dev/ttyS* to a COM port (COM1 is this machine's own console). Only the tests map COM ports.
export WINEDLLOVERRIDES='mscoree,mshtml,winemenubuilder.exe=;mountmgr.sys=d'
unset DISPLAY WAYLAND_DISPLAY
server_log=$prefix.wineserver.log
mkdir -p "$(dirname "$prefix")"

# A prefix from before the mount manager was left out maps COM1: it is made anew.
ready=$prefix/.portwren-ready-2
if [ ! -e "$ready" ]; then
  (
    flock 9
    if [ ! -e "$ready" ]; then
      case $(basename "$prefix") in
        wine-prefix*) rm -rf "$prefix" ;;
        *) echo "wine-run.sh: $prefix is not a throwaway wine-prefix*" >&2 && exit 1 ;;
      esac
      # The server wineboot starts must not keep the lock.
      if ! timeout 240 wine wineboot --init </dev/null >"$prefix.boot.log" 2>&1 9>&-; then
        echo "wine-run.sh: wineboot --init failed or hung in $prefix: $(tail -5 "$prefix.boot.log")" >&2
        exit 1
      fi
      timeout 60 wineserver -w 9>&- || true
      if compgen -G "$prefix/dosdevices/com*" >/dev/null; then
        echo "wine-run.sh: the new prefix maps COM ports of its own: $(cd "$prefix/dosdevices" && echo com*)" >&2
        exit 1
      fi
      touch "$ready"
    fi
  ) 9>"$prefix.lock"
fi

# The server is started here, away from the caller's pipes: one started by wine keeps the
# first program's output open (ctest then waits for it) and prints its own dumps there.
start_server() {
  wineserver -p2 </dev/null >>"$server_log" 2>&1 || true
}

# The program under the time limit; its Wine messages are looked through for heap faults.
run_program() {
  local status=0 messages
  messages=$(mktemp)
  timeout --foreground -k 10 "$limit" wine "$exe" "$@" 2>"$messages" || status=$?
  cat "$messages" >&2
  if [ "$status" = 124 ] || [ "$status" = 137 ]; then
    echo "wine-run.sh: $(basename "$exe") did not end within $limit s and was killed: a hang inside" \
      "Wine (the tests bound their own waits; the last [ RUN ] line above names the test)" >&2
  elif grep -q ':heap:' "$messages"; then
    echo "wine-run.sh: Wine's heap checks found a fault (above)" >&2
    [ "$status" != 0 ] || status=1
  fi
  rm -f "$messages"
  return "$status"
}

if [ "$serial" != 1 ]; then
  start_server
  status=0
  run_program "$@" || status=$?
  exit "$status"
fi

command -v socat >/dev/null || { echo "wine-run.sh: socat is needed for the serial line" >&2; exit 1; }
exec 8>"$prefix.serial.lock"
flock -w 200 8 || { echo "wine-run.sh: the serial line stays taken" >&2; exit 1; }
near=com240 far=com241
lines=$(mktemp -d)
socat_pid=
stop_server() {
  timeout 20 wineserver -k 8>&- 2>/dev/null || true
  timeout 20 wineserver -w 8>&- 2>/dev/null || true
}
cleanup() {
  if [ -n "$socat_pid" ]; then
    kill "$socat_pid" 2>/dev/null || true
    wait "$socat_pid" 2>/dev/null || true
  fi
  stop_server
  rm -f "$prefix/dosdevices/$near" "$prefix/dosdevices/$far"
  rm -rf "$lines"
}
trap cleanup EXIT
trap 'exit 130' INT
trap 'exit 143' TERM HUP

stop_server
# Neither socat nor Wine (whose services outlive the run) may keep the lock.
socat "pty,raw,echo=0,link=$lines/near" "pty,raw,echo=0,link=$lines/far" </dev/null 2>"$lines/socat.log" 8>&- &
socat_pid=$!
for _ in $(seq 100); do
  [ -e "$lines/near" ] && [ -e "$lines/far" ] && break
  sleep 0.05
done
if [ ! -e "$lines/near" ] || [ ! -e "$lines/far" ]; then
  echo "wine-run.sh: socat made no line: $(cat "$lines/socat.log")" >&2
  exit 1
fi
ln -sfn "$(readlink "$lines/near")" "$prefix/dosdevices/$near"
ln -sfn "$(readlink "$lines/far")" "$prefix/dosdevices/$far"
export PORTWREN_WINE_PORTS="\\\\.\\${near^^} \\\\.\\${far^^}"
start_server 8>&-
status=0
run_program "$@" 8>&- || status=$?
exit "$status"
