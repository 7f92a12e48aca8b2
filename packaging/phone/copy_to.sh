#!/usr/bin/env bash
# Copies what the phone's build needs into a new folder of the phone's tree.
#
#   packaging/phone/copy_to.sh FOLDER
set -euo pipefail

[ $# -eq 1 ] || { sed -n '2,4s/^# \{0,1\}//p' "$0" >&2; exit 2; }
[ ! -e "$1" ] || { echo "copy_to.sh: $1 exists" >&2; exit 1; }
mkdir -p "$1"
folder=$(cd "$1" && pwd)
cd "$(dirname "$0")/../.."

read -ra product < <(sed -n 's/^set(PELTO_PRODUCT_FOLDERS \(.*\))$/\1/p' CMakeLists.txt)
mapfile -t code < <(find "${product[@]}" \( -name '*.h' -o -name '*.cpp' \) \
    ! -name '*_test.*' ! -path '*/testing/*')
cp --parents "${code[@]}" phone/phone.h phone/phone_device.cpp host/phone_main.cpp "$folder"
cp -r packaging/phone/{Android.bp,peltoserviced.rc,sepolicy} "$folder"
