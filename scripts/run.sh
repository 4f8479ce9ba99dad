#!/usr/bin/env bash
# Installs what is missing, builds, and starts the console on its embedded SQLite store.
# Arguments are passed to qarvo-console (try --help).
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh
cmake --preset default >/dev/null
cmake --build --preset default

console=build/default/bin/qarvo-console
if [ -z "${DISPLAY:-}" ] && [ -z "${WAYLAND_DISPLAY:-}" ] && [ -z "${QT_QPA_PLATFORM:-}" ]; then
  cat >&2 <<MSG
qarvo-console needs a display, and this session has none (DISPLAY and WAYLAND_DISPLAY are unset).
Start it from a desktop session, or render what it shows into a picture instead:

  QT_QPA_PLATFORM=offscreen $console --screenshot qarvo.png
MSG
  exit 2
fi
exec "$console" "$@"
