#!/bin/sh
# run-in-wine.sh PROGRAM.exe [ARGS]: runs a Windows program in the wine prefix of this build tree, quietly.
# The prefix lies below build/ and is made by the first program that runs; nothing outside the tree is touched.
root=$(cd "$(dirname "$0")/.." && pwd)
WINEPREFIX=${WINEPREFIX:-$root/build/wine}
export WINEPREFIX WINEDEBUG="${WINEDEBUG:--all}" WINEDLLOVERRIDES="${WINEDLLOVERRIDES:-mscoree,mshtml=}" DISPLAY=
export WINEARCH=win64
mkdir -p "$WINEPREFIX"
# One program makes the prefix, the others wait for it.
if [ ! -e "$WINEPREFIX/.ready" ]; then
  exec 9>"$WINEPREFIX/.lock"
  flock 9
  if [ ! -e "$WINEPREFIX/.ready" ]; then
    /usr/lib/wine/wine64 wineboot --init >/dev/null 2>&1 9>&- && touch "$WINEPREFIX/.ready"
  fi
  exec 9>&-
fi
# The server that wine programs share, started apart: one that a program starts keeps that program's output open and
# writes its own words into it. It ends a minute after its last program.
/usr/lib/wine/wineserver -p60 >/dev/null 2>&1 </dev/null 9>&- || true
exec /usr/lib/wine/wine64 "$@"
