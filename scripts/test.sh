#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test: once in the normal build and once under
# AddressSanitizer and UndefinedBehaviorSanitizer, with a PostgreSQL server started for the store.
# The normal build is also installed into a temporary prefix and the example host built against it.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh

eval "$(bash scripts/pg.sh start)"
trap 'bash scripts/pg.sh stop "$QARVO_PG_DIR"' EXIT

for preset in ${QARVO_TEST_PRESETS:-default asan}; do
  echo "== build: $preset"
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset"
  echo "== tests: $preset"
  ctest --preset "$preset" -j2
  if [ "$preset" = default ]; then
    echo "== install: the example host against an installed qarvo"
    bash scripts/check-install.sh build/default
  fi
done
