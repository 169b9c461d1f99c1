#!/bin/sh
# Installs the Debian packages named on the command line that are missing.
# As root it runs apt-get (after one apt-get update); otherwise it prints the
# command to run and fails.
set -eu
missing=""
for package in "$@"; do
  if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed"; then
    missing="$missing $package"
  fi
done
[ -z "$missing" ] && exit 0
if [ "$(id -u)" -ne 0 ]; then
  echo "Missing Debian packages:$missing" >&2
  echo "Install them with: sudo apt-get update && sudo apt-get install -y$missing" >&2
  exit 1
fi
echo "Installing:$missing"
apt-get update -qq
DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends $missing
