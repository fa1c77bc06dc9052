#!/usr/bin/env bash
# Runs a Windows program under Wine in a throwaway prefix beside it (created on first use, one
# creator at a time). Used as the emulator of the Windows test programs.
#
# With PORTWREN_WINE_SERIAL=1 the program also gets a null-modem line: a socat pair of
# pseudo-terminals mapped to two COM ports of the prefix, named in PORTWREN_WINE_PORTS
# ("\\.\COM240 \\.\COM241": the port under test, then its far end). Runs that want the line
# take turns on it.
set -euo pipefail
exe=$1
shift
prefix=${PORTWREN_WINEPREFIX:-$(cd "$(dirname "$exe")" && pwd)/wine-prefix}
export PORTWREN_UNDER_WINE=1 WINEPREFIX=$prefix WINEDEBUG=-all WINEDLLOVERRIDES='mscoree,mshtml,winemenubuilder.exe='
unset DISPLAY WAYLAND_DISPLAY
mkdir -p "$(dirname "$prefix")"
if [ ! -e "$prefix/.portwren-ready" ]; then
  (
    flock 9
    if [ ! -e "$prefix/.portwren-ready" ]; then
      timeout 240 wine wineboot --init >/dev/null 2>&1 </dev/null
      touch "$prefix/.portwren-ready"
    fi
  ) 9>"$prefix.lock"
fi
if [ "${PORTWREN_WINE_SERIAL:-}" != 1 ]; then
  exec wine "$exe" "$@"
fi

command -v socat >/dev/null || { echo "wine-run.sh: socat is needed for the serial line" >&2; exit 1; }
exec 8>"$prefix.serial.lock"
flock -w 200 8 || { echo "wine-run.sh: the serial line stays taken" >&2; exit 1; }
near=com240 far=com241
lines=$(mktemp -d)
socat_pid=
cleanup() {
  if [ -n "$socat_pid" ]; then
    kill "$socat_pid" 2>/dev/null || true
    wait "$socat_pid" 2>/dev/null || true
  fi
  rm -f "$prefix/dosdevices/$near" "$prefix/dosdevices/$far"
  rm -rf "$lines"
}
trap cleanup EXIT
trap 'exit 130' INT
trap 'exit 143' TERM HUP

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
status=0
wine "$exe" "$@" 8>&- || status=$?
exit "$status"
