#!/usr/bin/env bash
# Builds and runs the whole test suite in every configuration we ship for:
#   native      x86_64 (scalar, SSE4.1, AVX2 and AVX-512 kernels compared
#               byte for byte), with the Python and Java bindings and
#               their tests,
#   armv7       32-bit ARM NEON with the softfp float ABI under qemu-arm,
#   aarch64     aarch64 under qemu-aarch64,
#   arm-clang   both ARM targets built with clang, as the Android NDK builds
#               them: the kernel checks and the unit and golden tests,
#   asan        GCC's AddressSanitizer + UndefinedBehaviorSanitizer,
#   ubsan-clang clang's UndefinedBehaviorSanitizer, whose checks (pointer
#               overflow among them) catch what GCC's let pass,
#   tsan        ThreadSanitizer,
#   fuzz        the libFuzzer targets (clang, ASan + UBSan), each for
#               KQ_FUZZ_SECONDS (default 60) from its checked-in seeds.
# Every sanitizer report ends its process and so fails its test.
# Usage: scripts/test.sh [config ...]
#   (configs: native armv7 aarch64 arm-clang asan ubsan-clang tsan fuzz)
set -uo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
scripts/install-deps.sh || { echo "dependency installation failed"; exit 1; }

jobs=${KQ_JOBS:-$(nproc)}
configs=("$@")
if ((${#configs[@]} == 0)); then configs=(native armv7 aarch64 arm-clang asan ubsan-clang tsan fuzz); fi
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1}

passed=0
failed=0
broken=()

run_config() {
  local name=$1; shift
  local dir="$root/build-test/$name"
  local ctest_args=() build_args=()
  case "$name" in
    tsan) ctest_args=(-E kq_checkkernels) ;;  # single-threaded kernel checks gain nothing here
    armv7-clang | aarch64-clang)
      # What depends on the compiler: the kernels against the scalar
      # reference and the golden checksums (the rest runs under GCC).
      build_args=(--target kq_checkkernels kq_tests)
      ctest_args=(-R '^(kq_checkkernels|kq_tests|kq_golden_scalar)$') ;;
  esac
  echo "=== $name: configure and build"
  if ! cmake -S "$root" -B "$dir" -G Ninja -DKQ_WERROR=ON "$@" >"$dir.configure.log" 2>&1; then
    mkdir -p "$dir"; cat "$dir.configure.log"; broken+=("$name (configure)"); return
  fi
  if ! cmake --build "$dir" -j "$jobs" "${build_args[@]}" >"$dir.build.log" 2>&1; then
    tail -n 60 "$dir.build.log"; broken+=("$name (build)"); return
  fi
  echo "=== $name: test"
  local log="$dir.ctest.log"
  (cd "$dir" && ctest --output-on-failure -j "$jobs" "${ctest_args[@]}") 2>&1 | tee "$log"
  local line
  line=$(grep -E 'tests passed, [0-9]+ tests failed out of [0-9]+' "$log" | tail -n 1)
  if [[ -z "$line" ]]; then broken+=("$name (no test summary)"); return; fi
  local nfail ntotal
  nfail=$(sed -E 's/.*tests passed, ([0-9]+) tests failed out of ([0-9]+).*/\1/' <<<"$line")
  ntotal=$(sed -E 's/.*tests passed, ([0-9]+) tests failed out of ([0-9]+).*/\2/' <<<"$line")
  passed=$((passed + ntotal - nfail))
  failed=$((failed + nfail))
  if ((nfail > 0)); then broken+=("$name"); fi
}

mkdir -p build-test
start=$(date +%s)
for c in "${configs[@]}"; do
  case "$c" in
    native)  run_config native -DCMAKE_BUILD_TYPE=Release -DKQ_BUILD_PYTHON=ON -DKQ_BUILD_JAVA=ON ;;
    armv7)   run_config armv7 -DCMAKE_BUILD_TYPE=Release \
               -DCMAKE_TOOLCHAIN_FILE="$root/cmake/toolchains/armv7a-linux-softfp.cmake" ;;
    aarch64) run_config aarch64 -DCMAKE_BUILD_TYPE=Release \
               -DCMAKE_TOOLCHAIN_FILE="$root/cmake/toolchains/aarch64-linux.cmake" ;;
    arm-clang)
             run_config armv7-clang -DCMAKE_BUILD_TYPE=Release \
               -DCMAKE_TOOLCHAIN_FILE="$root/cmake/toolchains/armv7a-linux-softfp-clang.cmake"
             run_config aarch64-clang -DCMAKE_BUILD_TYPE=Release \
               -DCMAKE_TOOLCHAIN_FILE="$root/cmake/toolchains/aarch64-linux-clang.cmake" ;;
    asan)    run_config asan -DCMAKE_BUILD_TYPE=RelWithDebInfo "-DKQ_SANITIZER=address;undefined" ;;
    ubsan-clang)
             run_config ubsan-clang -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKQ_SANITIZER=undefined \
               -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ ;;
    tsan)    run_config tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKQ_SANITIZER=thread ;;
    fuzz)    run_config fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo "-DKQ_SANITIZER=address;undefined" \
               -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DKQ_BUILD_FUZZ=ON \
               -DKQ_BUILD_TESTS=OFF -DKQ_BUILD_TOOLS=OFF -DKQ_FUZZ_SECONDS="${KQ_FUZZ_SECONDS:-60}" ;;
    *) echo "unknown configuration: $c"; broken+=("$c (unknown)") ;;
  esac
done
echo "=== finished in $(( $(date +%s) - start )) s: ${configs[*]}"
if ((${#broken[@]} > 0)); then
  echo "FAILED configurations: ${broken[*]}"
  echo "total: $passed passed, $((failed > 0 ? failed : 1)) failed"
  exit 1
fi
echo "total: $passed passed, $failed failed"
