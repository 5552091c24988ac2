#!/usr/bin/env bash
# packages.sh [TARGET]: installs the packages of packages.txt that are missing, those of a section "only for make TARGET"
# only for that one; asks for root only when some are.
set -eu
cd "$(dirname "$0")/.."

missing=()
for package in $(awk -v target="${1:-}" '/^# only for make / { left = $5; sub(":", "", left); next }
                                         /^#/ { left = ""; next }
                                         left == "" || left == target' packages.txt); do
    status=$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null || true)
    [ "$status" = installed ] || missing+=("$package")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "Installing: ${missing[*]}"
root=
[ "$(id -u)" -eq 0 ] || root=sudo
export DEBIAN_FRONTEND=noninteractive
$root apt-get update -q >/dev/null
$root apt-get install -y -q --no-install-recommends "${missing[@]}" >/dev/null
