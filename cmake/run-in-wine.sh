#!/bin/sh
# run-in-wine.sh PROGRAM.exe [ARGS]: runs a Windows program in the wine prefix of this build tree, quietly.
# The prefix lies below build/ and is made by the first program that runs; nothing outside the tree is touched.
root=$(cd "$(dirname "$0")/.." && pwd)
WINEPREFIX=${WINEPREFIX:-$root/build/wine}
export WINEPREFIX WINEDEBUG="${WINEDEBUG:--all}" WINEDLLOVERRIDES="${WINEDLLOVERRIDES:-mscoree,mshtml=}" DISPLAY=
export WINEARCH=win64
mkdir -p "$WINEPREFIX"
# Wine's server and the services it runs (services.exe, rpcss.exe and others) inherit the output of the program that
# first needs them and outlive it: whoever reads that output to its end waits until the server ends. So they are
# started here, apart, by one of the programs that start at a time, before any program whose output is read. The
# server exits with 2 where one runs already; it ends five minutes after its last program.
exec 9>"$WINEPREFIX/.lock"
flock 9
if /usr/lib/wine/wineserver -p300 >/dev/null 2>&1 </dev/null 9>&-; then
  /usr/lib/wine/wine64 wineboot --init >/dev/null 2>&1 </dev/null 9>&-
fi
exec 9>&-
exec /usr/lib/wine/wine64 "$@"
