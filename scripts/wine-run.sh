#!/usr/bin/env bash
# Runs a Windows program under Wine in a throwaway prefix beside it (created on first use, one
# creator at a time). Used as the emulator of the Windows test programs.
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
exec wine "$exe" "$@"
