#!/usr/bin/env bash
# Runs clang-tidy on every source outside tests, bench and fuzz.
#
#   tools/check_tidy.sh BUILD_DIR     a folder with a compile_commands.json made for clang
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:?a build folder with compile_commands.json}

sources() {
    sed -n "s|^ *\"file\": \"$PWD/\\(.*\\)\",\\{0,1\\}\$|\\1|p" "$build/compile_commands.json" |
        grep -vE '^(build|tests|bench|fuzz)/|_test\.cpp$' | sort -u
}

# Filters clang-tidy's count of suppressed warnings.
sources | xargs -r -n 2 -P "$(nproc)" clang-tidy --quiet -p "$build" 2> >(grep -v 'generated\.$' >&2)
