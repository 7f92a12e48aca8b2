#!/usr/bin/env bash
# Refuses sources that clang-format-14 would change. Other releases format some details differently.
#
#   tools/check_format.sh [--fix]
set -euo pipefail
cd "$(dirname "$0")/.."

if ! command -v clang-format-14 >/dev/null; then
    echo 'not checked: there is no clang-format-14 here'
    exit
fi
mode=(--dry-run -Werror)
[ "${1:-}" != --fix ] || mode=(-i)
find . -path ./build -prune -o -path ./.git -prune -o \
    -type f \( -name '*.h' -o -name '*.cpp' \) -print0 |
    xargs -0 -r -n 20 -P "$(nproc)" clang-format-14 "${mode[@]}"
