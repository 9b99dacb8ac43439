#!/usr/bin/env bash
# Builds the firewall and serves a protected demo site until Ctrl-C.
set -euo pipefail
started_in=$PWD
cd "$(dirname "${BASH_SOURCE[0]}")"
# What is printed can be typed where this was started.
from=
[ "$PWD" = "$started_in" ] || from=$(printf '%q' "$PWD/")

usage() {
  cat <<'TEXT'
./run.sh [--build-only] [--language en-US|zh-CN] [--port N] [--fresh]
  --build-only   install what is missing, build build/bin/{qivhost,qivctl,libQivIpsIIs.so}, stop
  --language L   language of pages and logs; another one than last time changes that alone in your settings
  --port N       serve on http://127.0.0.1:N (default 8080)
  --fresh        write the configuration in build/demo/config anew, forgetting your changes to it
A second one beside a running demo serves the same installation on another port.
TEXT
}

build_only=0 language='' port=8080 fresh=0
while [ $# -gt 0 ]; do
  case $1 in
    --build-only) build_only=1 ;;
    --fresh) fresh=1 ;;
    --language | --port)
      [ $# -ge 2 ] || { echo "run.sh: $1 needs a value" >&2; exit 2; }
      if [ "$1" = --port ]; then port=$2; else language=$2; fi
      shift ;;
    -h | --help) usage; exit 0 ;;
    *) echo "run.sh: unknown option $1" >&2; usage >&2; exit 2 ;;
  esac
  shift
done
case $language in '' | en-US | zh-CN) ;; *) echo "run.sh: --language is en-US or zh-CN" >&2; exit 2 ;; esac
case $port in '' | *[!0-9]* | ??????*) echo "run.sh: --port is a number up to 65535" >&2; exit 2 ;; esac

fail() {
  echo "run.sh: $*" >&2
  exit 1
}
refuse_taken_port() {
  [ "$port" != 0 ] && (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null || return 0
  fail "something listens on 127.0.0.1:$port already; stop it, or choose another port: ${from}./run.sh --port N"
}
[ "$build_only" = 1 ] || refuse_taken_port

cmake/install-packages.sh build
build_log=build/run-build.log
mkdir -p build
how_long='what has changed'
[ -f build/bin/qivhost ] || how_long='the first time, about five minutes on two cores'
echo "building $how_long (log: $from$build_log)"
# The step at hand on one line of a terminal; elsewhere nothing.
show_steps() {
  local line width=${COLUMNS:-79}
  while IFS= read -r line; do
    printf '%s\n' "$line" >>"$build_log"
    case $line in '['[0-9]*) [ ! -t 1 ] || printf '\r%-*.*s' "$width" "$width" "${line% (*}" ;; esac
  done
  [ ! -t 1 ] || printf '\r%*s\r' "$width" ''
}
began=$SECONDS
{ [ -f build/release/build.ninja ] || cmake --preset release; } >"$build_log" 2>&1 &&
  cmake --build --preset release --target qivhost qivctl QivIpsIIs 2>&1 | show_steps || {
  tail -n 40 "$build_log" >&2
  fail "the build failed; the whole log is in $from$build_log"
}
echo "built in $((SECONDS - began)) seconds"
[ "$build_only" = 0 ] || { echo "built: ${from}build/bin/qivhost ${from}build/bin/qivctl ${from}build/bin/libQivIpsIIs.so"; exit 0; }

# The demo installation: a copy of the module with config/ and debug/ beside it, and the site. All who serve it hold the
# lock together; whoever finds it held changes nothing that the others use.
demo=$PWD/build/demo
mkdir -p "$demo/debug"
refuse_taken_port
exec 9>"$demo/.lock"
flock -n 9 && first=1 || { first=0; flock -s 9; }
last=$(cat "$demo/.language" 2>/dev/null || true)
language=${language:-${last:-en-US}}
write_config=0 change_language=0
if [ "$fresh" = 1 ] || [ ! -f "$demo/config/_config.db" ] || [ ! -d "$demo/rules" ]; then
  write_config=1
elif [ "$language" != "$last" ]; then
  change_language=1
fi
output=$demo/host.log
if [ "$first" = 0 ]; then
  [ "$write_config$change_language" = 00 ] || fail "a running demo uses the configuration in ${from}build/demo; stop it first"
  output=$demo/host-$port.log
else
  rm -rf "$demo/site"
  cp -r docs/demo-site "$demo/site"
  : >"$demo/service.log"
fi
# Renamed into place: writing into a file that a process has mapped takes the code from under it.
cp build/bin/libQivIpsIIs.so "$demo/.libQivIpsIIs.so.$$"
mv -f "$demo/.libQivIpsIIs.so.$$" "$demo/libQivIpsIIs.so"
if [ "$write_config" = 1 ]; then
  rm -rf "$demo/.new"
  build/bin/qivctl init "$demo/.new" --language "$language" --rules rules >/dev/null
  rm -rf "$demo/config" "$demo/settings.json" "$demo/rules" "$demo/rules.old" "$demo/own"
  cp -r "$demo/.new/." "$demo"
  rm -rf "$demo/.new"
  echo "$language" >"$demo/.language"
elif [ "$change_language" = 1 ]; then
  build/bin/qivctl set "$demo/settings.json" language "$language"
  build/bin/qivctl rules update "$demo/rules" --config "$demo" || [ $? = 1 ] ||
    fail "your settings in ${from}build/demo/settings.json are not taken; mend them, or begin anew with --fresh"
  echo "$language" >"$demo/.language"
fi
flock -s 9

: >"$output"
build/bin/qivhost --module "$demo/libQivIpsIIs.so" --listen "127.0.0.1:$port" --root "$demo/site" >"$output" 2>&1 </dev/null &
host=$!
# Stands in for the firewall service: keeps the lists of clients that the module asks for. One at a time; the next takes
# over when it ends.
flock -F "$demo/.service" build/bin/qivctl service --config "$demo" >>"$demo/service.log" 2>&1 </dev/null 9>&- &
service=$!
stop() {
  trap '' INT TERM
  kill -TERM "$host" 2>/dev/null || true
  wait "$host" 2>/dev/null || true
  # Whatever it has not taken yet is taken the next time.
  kill -TERM "$service" 2>/dev/null || true
  wait "$service" 2>/dev/null || true
}
trap 'stop; exit 0' INT TERM
trap stop EXIT

for _ in $(seq 150); do
  grep -q 'listening on ' "$output" && break
  kill -0 "$host" 2>/dev/null || break
  sleep 0.1
done
grep -q 'listening on ' "$output" || fail "the host did not start: $(cat "$output")"
url=http://$(sed -n 's/.*listening on //p' "$output" | head -n 1 | tr -d '\r')

cat <<TEXT

The demo site is at $url - four requests to try:

  passes   curl -i '$url/products.html?category=sea&id=1'
  blocked  curl -i "$url/products.html?id=1%27%20union%20select%20name,password%20from%20users--"
  blocked  curl -i '$url/search.html?q=%3Cscript%3Ealert(document.cookie)%3C/script%3E'
  blocked  curl -i --data-urlencode "comment=x' or '1'='1" $url/comment.html

What was stopped is in       ${from}build/demo/debug/_log.log
The host's own output is in  $from${output#"$PWD/"}, the firewall service's in ${from}build/demo/service.log
Who is locked out:           ${from}build/bin/qivctl lists --config ${from}build/demo   (and deny, auth, forgive, log)
Settings (read anew while it runs): edit ${from}build/demo/settings.json, then
  ${from}build/bin/qivctl pack ${from}build/demo/settings.json -o ${from}build/demo/config/_config.db

Ctrl-C stops it.
TEXT
wait "$host"
