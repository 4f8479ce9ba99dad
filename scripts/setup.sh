#!/usr/bin/env bash
# Installs what building and testing qarvo needs on Debian 12, and nothing that is already there.
# Every name is a real package (not one that another package merely provides), so that a machine
# with everything installed is recognised as such and apt-get is never run on it.
#   QARVO_WITH_FUZZ=1      adds clang for the libFuzzer targets
#   QARVO_WITH_PACKAGES=1  adds what `cpack -G DEB` needs
set -euo pipefail

packages=(
  cmake ninja-build g++ pkg-config
  qt6-base-dev qt6-base-dev-tools qt6-svg-dev libqt6sql6-sqlite libqt6sql6-psql libgl-dev
  libsqlite3-dev libpq-dev libxxhash-dev
  libbenchmark-dev
  python3 python3-jsonschema
  postgresql
  fonts-dejavu-core
)
if [ "${QARVO_WITH_FUZZ:-0}" = 1 ]; then
  packages+=(clang-14 libclang-rt-14-dev)
fi
if [ "${QARVO_WITH_PACKAGES:-0}" = 1 ]; then
  packages+=(dpkg-dev file)
fi

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done
if [ ${#missing[@]} -eq 0 ]; then
  echo "setup: all ${#packages[@]} packages are installed; nothing to do."
  exit 0
fi

echo "setup: installing ${missing[*]}"
as_root=()
if [ "$(id -u)" -ne 0 ]; then
  as_root=(sudo)
fi
export DEBIAN_FRONTEND=noninteractive
"${as_root[@]}" apt-get update -qq
"${as_root[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
