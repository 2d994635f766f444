#!/usr/bin/env bash
# Installs what is missing, builds, and runs the main job: a real upscale of
# a built-in demo image through the library's exported functions.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake -S . -B build-demo -G Ninja -DCMAKE_BUILD_TYPE=Release -DKQ_BUILD_TESTS=OFF >/dev/null
cmake --build build-demo -j "$(nproc)" >/dev/null
exec build-demo/tools/kqupscale --demo "$@"
