#!/usr/bin/env bash
# Installs what the project needs from Debian's packages, then configures and builds.
# Idempotent: packages already present are not fetched again, an existing build folder is
# reused.
#   scripts/setup.sh [BUILD_DIR] [extra cmake arguments...]
# The default build is Release with warnings as errors; extra arguments override it.
set -euo pipefail

here="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build_dir="${1:-$here/build}"
shift || true

packages=(
  g++ cmake ninja-build pkg-config
  libxerces-c-dev nlohmann-json3-dev libcli11-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  clang libclang-rt-14-dev
  python3 python3-numpy
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ "${#missing[@]}" -gt 0 ]; then
  echo "setup: installing ${missing[*]}"
  SUDO=""
  [ "$(id -u)" -ne 0 ] && SUDO="sudo"
  $SUDO apt-get update
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y --no-install-recommends "${missing[@]}"
fi

cmake -S "$here" -B "$build_dir" -G Ninja -DCMAKE_BUILD_TYPE=Release -DKAVOR_WERROR=ON "$@"
cmake --build "$build_dir" -j"$(nproc)"
