#!/usr/bin/env bash
# Installs the Debian packages the build needs, only those that are missing.
# Runs unattended as root (or through sudo when available); does nothing when all are present.
set -euo pipefail

packages=(
  cmake ninja-build g++ clang pkg-config
  libboost-thread-dev libboost-system-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  libinih-dev libicu-dev libclang-rt-14-dev
  libpugixml-dev libxml2-dev libtinyxml2-dev unicode-cldr-core
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

echo "setup: installing ${missing[*]}"
sudo_cmd=()
if [ "$(id -u)" -ne 0 ]; then
  sudo_cmd=(sudo)
fi
export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get update -qq
"${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
