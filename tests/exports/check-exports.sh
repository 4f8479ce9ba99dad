#!/usr/bin/env bash
# check-exports.sh NM LIBRARY ALLOW-LIST...
# Fails when the shared library exports a symbol that no pattern of the allow lists (extended
# regular expressions over demangled names, one a line, # for comments) accounts for.
set -euo pipefail
nm=$1 library=$2
shift 2

symbols=$("$nm" -D --defined-only -C "$library" | sed -E 's/^[0-9a-fA-F]* *[A-Za-z] //')
[ -n "$symbols" ] || { echo "no exported symbols found in $library" >&2; exit 1; }
unexpected=$(grep -v -E -f <(cat "$@" | grep -v -E '^(#|$)') <<<"$symbols" || true)
if [ -n "$unexpected" ]; then
  echo "$library exports symbols outside its public API:" >&2
  echo "$unexpected" >&2
  exit 1
fi
echo "$(wc -l <<<"$symbols") exported symbols, all public."
