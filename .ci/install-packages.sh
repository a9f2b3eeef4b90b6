#!/bin/sh
# Installs the Debian packages named on the command line that are missing.
# As root it uses apt-get; otherwise it says what to install and fails.
# A failed `apt-get update` (an unreachable source, a foreign architecture
# without lists) does not stop it: the install is tried with the lists there
# are, and only a failed install fails.
missing=""
for p in "$@"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing="$missing $p"
done
[ -z "$missing" ] && exit 0
if [ "$(id -u)" = 0 ]; then
  echo "installing:$missing"
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq || echo "apt-get update failed; trying the install with the package lists there are"
  apt-get install -y -qq $missing >/dev/null || { echo "could not install:$missing"; exit 1; }
else
  echo "missing packages:$missing"
  echo "install them with: sudo apt-get install$missing"
  exit 1
fi
