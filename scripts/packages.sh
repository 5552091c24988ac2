#!/usr/bin/env bash
# Installs the packages of packages.txt that are missing; asks for root only when some are.
set -eu
cd "$(dirname "$0")/.."

missing=()
for package in $(grep -v '^#' packages.txt); do
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
