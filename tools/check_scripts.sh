#!/usr/bin/env bash
# Refuses shell scripts that shellcheck objects to.
set -euo pipefail
cd "$(dirname "$0")/.."

shell_scripts() {
    find . -path ./build -prune -o -path ./.git -prune -o -type f -print |
        while read -r file; do
            if [[ $file == *.sh ]] || head -c 64 "$file" | grep -aqE '^#!.*\b(ba)?sh\b'; then
                printf '%s\0' "$file"
            fi
        done
}

shell_scripts | xargs -0 -r shellcheck
