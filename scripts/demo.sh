#!/usr/bin/env bash
# Installs what is missing, builds, and runs the main job: a real upscale of
# a built-in demo image through the library's exported functions.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
mkdir -p build-demo
log=build-demo/build.log
echo "demo: building the library and kqupscale in build-demo/ (about a minute on 2 cores;" \
     "log in $log)"
if ! { cmake -S . -B build-demo -G Ninja -DCMAKE_BUILD_TYPE=Release -DKQ_BUILD_TESTS=OFF &&
       cmake --build build-demo -j "$(nproc)"; } >"$log" 2>&1; then
  tail -n 40 "$log"
  echo "demo: the build failed; the whole log is in $log" >&2
  exit 1
fi
exec build-demo/tools/kqupscale --demo "$@"
