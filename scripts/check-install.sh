#!/usr/bin/env bash
# Installs a build into a temporary prefix, then builds and runs the example host against it the
# way a host's developer would: with nothing but that prefix on CMAKE_PREFIX_PATH.
#   bash scripts/check-install.sh [BUILD_DIR]     (default: build/default)
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build/default}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/prefix" >/dev/null

# Every installed header compiles on its own, with nothing but the prefix and Qt to find.
read -r -a qt_flags <<<"$(pkg-config --cflags Qt6Widgets)"
for header in $(cd "$work/prefix/include" && find qarvo -name '*.h' | sort); do
  echo "#include <$header>" | c++ -std=c++20 -fPIC -fsyntax-only -x c++ -I"$work/prefix/include" \
    "${qt_flags[@]}" - || { echo "check-install: $header does not compile on its own" >&2; exit 1; }
done
cmake -S examples/host -B "$work/host" -G Ninja -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
cmake --build "$work/host" >/dev/null

# A store with rules in it: the installed console gives a new store its sample rules.
export QT_QPA_PLATFORM=offscreen XDG_RUNTIME_DIR="$work/runtime"
mkdir -m 700 "$XDG_RUNTIME_DIR"
"$work/prefix/bin/qarvo-console" --database "$work/rules.sqlite" --screenshot "$work/console.png"
rules=$("$work/host/qarvo-host-example" --list "$work/rules.sqlite")
if ! grep -q '^Service Pack Level' <<<"$rules"; then
  echo "check-install: the example host did not show the sample rules; it showed:" >&2
  echo "$rules" >&2
  exit 1
fi
echo "check-install: the example host, built against the installed qarvo, shows $(wc -l <<<"$rules") rules."
