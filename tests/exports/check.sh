#!/usr/bin/env bash
# Every documented name must be exported, unmangled, from the shared library.
# Usage: check.sh LIBRARY NAMES_FILE...
set -euo pipefail
lib=$1
shift
exported=$(nm -D --defined-only "$lib" | awk '{print $NF}' | sort -u)
missing=0
for list in "$@"; do
  while read -r name; do
    [ -z "$name" ] && continue
    if ! grep -qx -- "$name" <<<"$exported"; then
      echo "not exported: $name ($(basename "$list"))"
      missing=1
    fi
  done <"$list"
done
[ $missing -eq 0 ] && echo "all documented names exported"
exit $missing
