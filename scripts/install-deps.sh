#!/usr/bin/env bash
# Installs the Debian packages the build needs, when any is missing. As root it runs apt-get;
# otherwise it prints the command to run and fails.
set -euo pipefail

packages=(
  cmake ninja-build g++ clang libclang-rt-14-dev
  googletest libgtest-dev libgmock-dev libbenchmark-dev
  android-libutils-dev android-liblog-dev android-libbase-dev android-libcutils-dev hidl-gen
  libcapnp-dev capnproto
  libcli11-dev gcovr python3 nlohmann-json3-dev help2man libdvbv5-dev tmux libbitstream-dev
  ffmpeg dvb-tools
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

if [ "$(id -u)" -eq 0 ]; then
  echo "Installing: ${missing[*]}" >&2
  export DEBIAN_FRONTEND=noninteractive
  # A mirror caught mid-sync fails one index now and then; the install says whether what we need
  # was there.
  apt-get update -qq || echo "apt-get update reported errors; installing from the indexes it has" >&2
  apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
else
  echo "Missing Debian packages. Run:" >&2
  echo "  sudo apt-get update && sudo apt-get install -y ${missing[*]}" >&2
  exit 1
fi
