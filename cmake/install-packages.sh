#!/usr/bin/env bash
# install-packages.sh GROUP...: installs the Debian packages of these groups of packages.txt that are missing. Asks
# nothing. Needs root or a sudo that asks for no password only when something is missing.
set -euo pipefail
list=$(dirname "$0")/packages.txt

if ! command -v dpkg-query >/dev/null; then
  echo "install-packages: this is no Debian system; install by hand what $list names" >&2
  exit 0
fi

packages_of() { # GROUP
  awk -v group="$1" '
    /^# group:/ { inside = ($3 == group); seen = seen || inside }
    inside && /^[^#[:space:]]/ { print $1 }
    END { exit !seen }' "$list" || { echo "install-packages: no group \"$1\" in $list" >&2; return 1; }
}

missing=()
for group in "$@"; do
  names=$(packages_of "$group")
  for package in $names; do
    status=$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null || true)
    [ "$status" = installed ] || missing+=("$package")
  done
done
[ ${#missing[@]} -gt 0 ] || exit 0

as_root=()
if [ "$(id -u)" != 0 ]; then
  if command -v sudo >/dev/null && sudo -n true 2>/dev/null; then
    as_root=(sudo -n)
  else
    echo "install-packages: missing packages, and no right to install them. Run as root:" >&2
    echo "  apt-get install ${missing[*]}" >&2
    exit 1
  fi
fi
echo "installing: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
apt=("${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -q -y -o Dpkg::Use-Pty=0)
"${apt[@]}" install --no-install-recommends "${missing[@]}" </dev/null >/dev/null 2>&1 || {
  "${apt[@]}" update </dev/null >/dev/null
  "${apt[@]}" install --no-install-recommends "${missing[@]}" </dev/null >/dev/null
}
