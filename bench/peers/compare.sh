#!/usr/bin/env bash
# compare.sh [peers' options]: brings libmodsecurity and its core rule set from the system's packages, builds, and prints
# what a decision costs here and there. docs/performance.md holds the tables.
set -euo pipefail
cd "$(dirname "$0")/../.."
bash cmake/install-packages.sh build test peers
cmake --preset release >/dev/null
cmake --build --preset release --target peers
rules=(/etc/modsecurity/crs/crs-setup.conf /usr/share/modsecurity-crs/rules/*.conf)
exec build/bin/peers "$@" --rules "${rules[@]}"
