#!/usr/bin/env bash
# Installs what the build needs from Debian's packages, once; a no-op when all is there.
set -euo pipefail

packages=(cmake ninja-build g++ make libgtest-dev libgmock-dev libbenchmark-dev
          zlib1g-dev libboost-dev libcli11-dev nlohmann-json3-dev libedit-dev
          clang libclang-rt-14-dev
          pkg-config dpkg-dev fakeroot file lintian help2man bash-completion
          python3-dev python3-pybind11 python3-matplotlib)
missing=()
for p in "${packages[@]}"; do
  dpkg -s "$p" >/dev/null 2>&1 || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "setup: installing ${missing[*]}" >&2
sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"
$sudo apt-get update -qq
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "${missing[@]}" >/dev/null
