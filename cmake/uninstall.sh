#!/bin/sh
# Removes what the last installation from the folder BUILD has installed, and the directories that
# installations have made, where they are empty now.   uninstall.sh BUILD
set -eu
manifest=$1/install_manifest.txt
directories=$1/install_directories.txt
destdir=$1/install_destdir.txt

if [ ! -e "$manifest" ] || [ ! -e "$destdir" ]; then
    echo "uninstall: nothing is known to be installed from $1" >&2
    exit 1
fi

IFS= read -r stage <"$destdir"
failed=
while IFS= read -r file || [ -n "$file" ]; do
    echo "Removing: $stage$file"
    rm -f -- "$stage$file" || failed=yes
done <"$manifest"
if [ -n "$failed" ]; then
    echo "uninstall: not all files could be removed" >&2
    exit 1
fi

# Inner ones first. rmdir leaves a directory that holds something.
LC_ALL=C sort -ru -- "$directories" | while IFS= read -r directory; do
    rmdir -- "$directory" 2>/dev/null || true
done
rm -f -- "$manifest" "$directories" "$destdir"
