#!/usr/bin/env bash
# Builds the firewall and serves a protected demo site until Ctrl-C.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"

usage() {
  cat <<'TEXT'
./run.sh [--build-only] [--language en-US|zh-CN] [--port N] [--fresh]
  --build-only   install what is missing, build build/bin/{qivhost,qivctl,libQivIpsIIs.so}, stop
  --language L   language of pages and logs; another language than last time writes the configuration anew
  --port N       serve on http://127.0.0.1:N (default 8080)
  --fresh        write the configuration in build/demo/config anew, forgetting your changes to it
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
case $port in '' | *[!0-9]*) echo "run.sh: --port is a number" >&2; exit 2 ;; esac

cmake/install-packages.sh build
build_log=build/run-build.log
mkdir -p build
echo "building (log: $build_log)"
{ [ -f build/release/build.ninja ] || cmake --preset release; } >"$build_log" 2>&1 &&
  cmake --build --preset release --target qivhost qivctl QivIpsIIs >>"$build_log" 2>&1 || {
  tail -n 40 "$build_log" >&2
  echo "run.sh: the build failed; the whole log is in $build_log" >&2
  exit 1
}
[ "$build_only" = 0 ] || { echo "built: build/bin/qivhost build/bin/qivctl build/bin/libQivIpsIIs.so"; exit 0; }

# The demo installation: a copy of the module with config/ and debug/ beside it, and the site.
demo=$PWD/build/demo
mkdir -p "$demo/debug"
cp -f build/bin/libQivIpsIIs.so "$demo/"
rm -rf "$demo/site"
cp -r docs/demo-site "$demo/site"
last=$(cat "$demo/.language" 2>/dev/null || true)
language=${language:-${last:-en-US}}
if [ "$fresh" = 1 ] || [ "$language" != "$last" ] || [ ! -f "$demo/config/_config.db" ]; then
  rm -rf "$demo/config" "$demo/settings.json"
  build/bin/qivctl init "$demo" --language "$language" --rules rules
  echo "$language" >"$demo/.language"
fi

output=$demo/host.log
: >"$output"
build/bin/qivhost --module "$demo/libQivIpsIIs.so" --listen "127.0.0.1:$port" --root "$demo/site" >"$output" 2>&1 </dev/null &
host=$!
# Stands in for the firewall service: keeps the lists of clients that the module asks for.
build/bin/qivctl service --config "$demo" >"$demo/service.log" 2>&1 </dev/null &
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
grep -q 'listening on ' "$output" || { echo "run.sh: the host did not start:" >&2; cat "$output" >&2; exit 1; }
url=http://$(sed -n 's/.*listening on //p' "$output" | head -n 1 | tr -d '\r')

cat <<TEXT

The demo site is at $url - four requests to try:

  passes   curl -i '$url/products.html?category=sea&id=1'
  blocked  curl -i "$url/products.html?id=1%27%20union%20select%20name,password%20from%20users--"
  blocked  curl -i '$url/search.html?q=%3Cscript%3Ealert(document.cookie)%3C/script%3E'
  blocked  curl -i --data-urlencode "comment=x' or '1'='1" $url/comment.html

What was stopped is in   build/demo/debug/_log.log
The host's own output is in  build/demo/host.log, the firewall service's in build/demo/service.log
Who is locked out:           build/bin/qivctl lists --config build/demo   (and deny, auth, forgive, log)
Settings (read anew while it runs): edit build/demo/settings.json, then
  build/bin/qivctl pack build/demo/settings.json -o build/demo/config/_config.db

Ctrl-C stops it.
TEXT
wait "$host"
