#!/usr/bin/env bash
# Runs every test. ./test.sh --quick leaves out Windows (wine) and the browser.
# Ends with "N passed, N failed"; fails on any failure and when nothing ran.
set -uo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"

quick=0
for option in "$@"; do
  case $option in
    --quick) quick=1 ;;
    -h | --help) sed -n '2,3s/^# //p' "$0"; exit 0 ;;
    *) echo "test.sh: unknown option $option" >&2; exit 2 ;;
  esac
done

passed=0 failed=0 failures=()
results=$PWD/build/test-results
rm -rf "$results"
mkdir -p "$results"

section() { printf '\n== %s (%ss)\n' "$1" "$SECONDS"; }
fail() { failed=$((failed + 1)); failures+=("$1"); }

# one NAME COMMAND...: a step that passes or fails as a whole; its output is shown when it fails.
one() {
  local name=$1 log=$results/$1.log
  shift
  if "$@" >"$log" 2>&1 </dev/null; then
    passed=$((passed + 1))
    echo "passed: $name"
  else
    fail "$name"
    tail -n 60 "$log"
    echo "FAILED: $name (whole output: $log)"
  fi
}

# build PRESET [TARGET...]: configures and builds. A broken build counts as one failure; what it built is tested all the same.
build() {
  local preset=$1 log=$results/build-$1.log
  shift
  if ! cmake --preset "$preset" >"$log" 2>&1 || ! cmake --build --preset "$preset" ${1+--target "$@"} >>"$log" 2>&1; then
    grep -E -A 12 'FAILED|error:|CMake Error' "$log" | head -n 80
    echo "FAILED: build of preset $preset (whole output: $log)"
    fail "build-$preset"
    return 1
  fi
}

# suite NAME FOLDER [CTEST OPTIONS...]: a ctest run, counted test by test.
suite() {
  local name=$1 folder=$2 log=$results/$1.log summary
  shift 2
  ctest --test-dir "$folder" -j 2 --output-on-failure --no-tests=error "$@" >"$log" 2>&1 </dev/null
  grep -E '^ *[0-9]+/[0-9]+ Test' "$log" | grep -v ' Passed ' || true
  summary=$(grep -E '^[0-9]+% tests passed, [0-9]+ tests failed out of [0-9]+' "$log")
  if [ -z "$summary" ]; then
    tail -n 40 "$log"
    fail "$name (ran no test)"
    return
  fi
  read -r bad total < <(echo "$summary" | sed -E 's/.*passed, ([0-9]+) tests failed out of ([0-9]+).*/\1 \2/')
  passed=$((passed + total - bad)) failed=$((failed + bad))
  if [ "$bad" != 0 ]; then
    sed -n '/% tests passed/,$p' "$log"
    grep -E -B 2 -A 30 '\*\*\*Failed|Failure$|ERROR: |runtime error' "$log" | head -n 200
    failures+=("$name: $bad tests")
  fi
  echo "$name: $((total - bad)) of $total passed"
}

section "packages"
if [ "$quick" = 1 ]; then groups="build test"; else groups="build test windows browser"; fi
# shellcheck disable=SC2086
cmake/install-packages.sh $groups || { echo "0 passed, 1 failed"; exit 1; }

section "developer build (address and undefined-behaviour sanitizers) and its tests"
build dev
suite dev build/dev

section "thread sanitizer"
build tsan concurrent_tests
suite tsan build/tsan -L concurrent

section "release build, demo site, benchmark"
if build release; then
  one module-exports python3 cmake/checks/check_binary.py build/bin/libQivIpsIIs.so
  one demo python3 tests/repository/demo_test.py
  one benchmark build/bin/qivbench --benchmark_min_time=0.001
  one instructions python3 bench/instructions/check.py
fi

if [ "$quick" = 0 ]; then
  section "Windows, under wine"
  export WINEPREFIX=$PWD/build/wine WINEDEBUG=-all
  if build mingw-x64; then
    one windows-imports python3 cmake/checks/check_binary.py \
      build/windows/bin/QivIpsIIs.dll build/windows/bin/qivhost.exe build/windows/bin/qivctl.exe \
      build/windows/bin/qivsetup.exe
    one windows-archive cmake --build --preset mingw-x64 --target package_zip
    one windows-archive-imports python3 cmake/checks/check_binary.py \
      build/windows/obj/package/QivIpsIIs-*-windows-x64/{QivIpsIIs.dll,qivctl.exe,qivsetup.exe}
    one source-lists python3 cmake/checks/check_sources.py build/dev build/release build/windows/obj
  fi
  suite windows build/windows/obj
  # Only the server of this prefix; other prefixes have their own.
  [ ! -d "$WINEPREFIX" ] || /usr/lib/wine/wineserver -k >/dev/null 2>&1 || true
  section "browser"
  one browser python3 tests/browser/browser_test.py
  one verification_pages python3 tests/browser/verification_test.py
  section "an attack tool"
  # Larger packages than a test may ask for: where they are, they are used.
  if command -v sqlmap >/dev/null && command -v php >/dev/null && command -v mariadbd >/dev/null; then
    one sqlmap python3 bench/clients/try_sqlmap.py --quick
  else
    echo "skipped: sqlmap (cmake/install-packages.sh clients)"
  fi
fi

section "done"
for failure in "${failures[@]+"${failures[@]}"}"; do echo "failed: $failure"; done
[ $((passed + failed)) -gt 0 ] || failed=1
echo "$passed passed, $failed failed"
[ "$failed" = 0 ]
