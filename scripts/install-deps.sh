#!/usr/bin/env bash
# Installs the Debian packages that building, testing and benchmarking need,
# and only those that are missing. Run as root (or with sudo available).
#   scripts/install-deps.sh            build + test toolchain (native and cross), and the
#                                      Python (pybind11, NumPy, pytest) and Java (JDK 17)
#                                      bindings' build and test needs
#   scripts/install-deps.sh --bench    also Google Benchmark, the benchmark anchors (libyuv,
#                                      OpenCV) and matplotlib for scripts/bench-call.sh's chart
set -euo pipefail

packages=(cmake ninja-build g++ gcc pkg-config git libgtest-dev googletest
          g++-arm-linux-gnueabi g++-aarch64-linux-gnu qemu-user valgrind
          libpng-dev libjpeg-dev libyuv-dev libcli11-dev
          clang libclang-rt-dev llvm
          python3-dev pybind11-dev python3-numpy python3-pytest openjdk-17-jdk-headless)
if [[ "${1:-}" == "--bench" ]]; then
  packages+=(libbenchmark-dev libopencv-dev python3-matplotlib)
fi

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done
if ((${#missing[@]} == 0)); then
  exit 0
fi

echo "installing: ${missing[*]}"
SUDO=""
if [[ $(id -u) -ne 0 ]]; then SUDO="sudo"; fi
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
