#!/usr/bin/env bash
# The cost of a call on ARM, counted: there is no ARM hardware here and timings under qemu mean
# nothing, but qemu can count the instructions a program executes. This script
#  - installs what it needs (cross compilers, qemu-user, llvm, python3; libyuv for arm64 as the
#    anchor, unpacked into a private folder: never installed as an arm64 package),
#  - cross-builds the library in Release for armv7 (softfp, Thumb-2: the toolchain file the tests
#    use) and aarch64, with bench/arm/kq_cost (and kq_cost_libyuv for aarch64),
#  - builds the counting plugin bench/arm/insncount.c for qemu-user,
#  - prints instructions per warm call and per output pixel for the workloads of the whole-call
#    benchmark (bench/bench_call.cpp), 1 thread: bare warp, each filter alone, the defaults,
#    libyuv NV12Scale bilinear (aarch64) and a memcpy of the output; then each stage alone;
#  - prints llvm-mca's cycles per output pixel for the innermost row loops, on a little and a big
#    core model per architecture, from the compiled loops that the counts show hottest.
# A warm call is (count with 3 repetitions - count with 1) / 2: start-up, frame painting and the
# first call's set-up cancel out.
#   scripts/bench-arm.sh            everything (about 5 minutes on 2 cores after the builds)
#   scripts/bench-arm.sh --quick    the first workload only
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
out=$root/build-arm-bench
quick=0
[[ "${1:-}" == "--quick" ]] && quick=1

SUDO=""
if [[ $(id -u) -ne 0 ]]; then SUDO="sudo"; fi
# apt waits for another installer's lock instead of failing.
run_apt() { $SUDO env DEBIAN_FRONTEND=noninteractive apt-get -o DPkg::Lock::Timeout=900 "$@"; }

scripts/install-deps.sh
if ! command -v python3 >/dev/null; then
  run_apt update -qq
  run_apt install -y -qq --no-install-recommends python3 >/dev/null
fi
mkdir -p "$out"

# --- libyuv for arm64, unpacked privately ----------------------------------------------------
# dpkg learns the architecture so that apt can download its packages; nothing of it is
# installed (an arm64 libc in /lib/aarch64-linux-gnu would be found by the cross sysroot's
# loader too, and threaded programs under qemu-aarch64 would then hang).
yuvroot=$out/arm64-root
if [[ ! -e $yuvroot/usr/lib/aarch64-linux-gnu/libyuv.so.0 ]]; then
  echo "== libyuv for arm64 into $yuvroot"
  if ! dpkg --print-foreign-architectures | grep -qx arm64; then
    $SUDO dpkg --add-architecture arm64
  fi
  if ! apt-cache policy libyuv0:arm64 2>/dev/null | grep -q 'Candidate: [0-9]'; then
    # A list that fails for another architecture need not stop the one we need.
    run_apt update -qq || true
  fi
  mkdir -p "$out/debs" "$yuvroot"
  if ! (cd "$out/debs" && apt-get -o DPkg::Lock::Timeout=900 download libyuv0:arm64 \
          libjpeg62-turbo:arm64 >"$out/debs/download.log" 2>&1); then
    echo "could not download libyuv0:arm64 and libjpeg62-turbo:arm64 (see $out/debs/download.log)" >&2
    exit 1
  fi
  for deb in "$out"/debs/*_arm64.deb; do dpkg -x "$deb" "$yuvroot"; done
fi
# The headers are the host's libyuv-dev (the same version; scale.h is the same on every target).
mkdir -p "$out/libyuv-include"
cp -r /usr/include/libyuv.h /usr/include/libyuv "$out/libyuv-include/"

# --- builds ----------------------------------------------------------------------------------
build() {
  local arch=$1 toolchain=$2
  shift 2
  echo "== Release build for $arch ($out/$arch)"
  cmake -S "$root" -B "$out/$arch" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_TOOLCHAIN_FILE="$root/cmake/toolchains/$toolchain" -DKQ_BUILD_BENCH=ON \
    -DKQ_BUILD_TESTS=OFF -DKQ_BUILD_TOOLS=OFF "$@" >"$out/$arch.configure.log"
  cmake --build "$out/$arch" -j2 --target kq_cost \
    $([[ $arch == aarch64 ]] && echo kq_cost_libyuv) >"$out/$arch.build.log"
}
build aarch64 aarch64-linux.cmake -DKQ_COST_LIBYUV_ROOT="$yuvroot" \
  -DKQ_COST_LIBYUV_INCLUDE="$out/libyuv-include"
build armv7 armv7a-linux-softfp.cmake
gcc -O2 -shared -fPIC -o "$out/insncount.so" bench/arm/insncount.c

# --- counting --------------------------------------------------------------------------------
# count ARCH PROGRAM ARGS...: instructions the program executes under qemu (cached by arguments
# in $out/counts, which each run starts afresh).
rm -rf "$out/counts"
mkdir -p "$out/counts/aarch64" "$out/counts/armv7"
qemu_for() {
  case $1 in
    aarch64) echo "qemu-aarch64 -L /usr/aarch64-linux-gnu" ;;
    armv7) echo "qemu-arm -cpu cortex-a15 -L /usr/arm-linux-gnueabi" ;;
  esac
}
count() {
  local arch=$1 prog=$2
  shift 2
  local key
  key="$out/counts/$arch/$(basename "$prog").$(echo "$*" | tr ' /' '__')"
  if [[ ! -s $key ]]; then
    local log="$key.log"
    LD_LIBRARY_PATH="$yuvroot/usr/lib/aarch64-linux-gnu" \
      $(qemu_for "$arch") -plugin "$out/insncount.so" -d plugin -D "$log" "$prog" "$@" \
      >/dev/null 2>"$key.err" || { echo "failed: $arch $prog $*" >&2; cat "$key.err" >&2; exit 1; }
    sed -n 's/^insns //p' "$log" >"$key"
  fi
  cat "$key"
}
# warm ARCH PROGRAM ARGS...(without REPS): one warm repetition
warm() {
  local c1 c3
  c1=$(count "$@" 1)
  c3=$(count "$@" 3)
  echo $(((c3 - c1) / 2))
}

cases=(memcpy warp nr sharpen chroma defaults)
stages=(stage.intake stage.luma-warp stage.chroma-pairs stage.chroma-warp stage.luma-nr
        stage.sharpen stage.chroma-nr stage.chroma-nr1 stage.chroma-nr2 stage.chroma-nr3
        stage.chroma-nr-noise stage.interleave)
workloads=(0 1 2)
((quick)) && workloads=(0)

# Every count, the two architectures side by side (two qemu processes at a time).
echo "== counting (qemu-user with the plugin)"
for arch in aarch64 armv7; do
  (
    for wl in "${workloads[@]}"; do
      for c in "${cases[@]}"; do warm "$arch" "$out/$arch/bench/kq_cost" "$c" "$wl" >/dev/null; done
      [[ $arch == aarch64 ]] && warm aarch64 "$out/aarch64/bench/kq_cost_libyuv" "$wl" >/dev/null
    done
    for s in "${stages[@]}"; do warm "$arch" "$out/$arch/bench/kq_cost" "$s" 0 >/dev/null; done
  ) &
done
wait

wl_name() { sed -n "$((1 + $1))p" <<'EOF'
1024x768-4096x3072 4096 3072
1920x1080-3840x2160 3840 2160
roi1000x750of4000x3000-4000x3000 4000 3000
EOF
}

# fmt N PIXELS: "M (per pixel)"
fmt() { awk -v n="$1" -v p="$2" 'BEGIN { printf "%.1f M (%.2f)", n / 1e6, n / p }'; }
fmt_add() { awk -v n="$1" -v b="$2" -v p="$3" 'BEGIN { printf "+%.1f M (%.2f)", (n - b) / 1e6, (n - b) / p }'; }

echo
echo "Instructions per warm call, 1 thread, NV21, Release builds (armv7: softfp, Thumb-2, NEON);"
echo "in brackets per output pixel (luma pixels of the output). Filter rows: the whole call, and"
echo "what the filter adds to the bare warp."
for wl in "${workloads[@]}"; do
  read -r name ow oh <<<"$(wl_name "$wl")"
  px=$((ow * oh))
  echo
  echo "### $name"
  echo
  echo "| contender | aarch64 | armv7 |"
  echo "|---|---|---|"
  declare -A n=()
  for arch in aarch64 armv7; do
    for c in "${cases[@]}"; do n[$arch.$c]=$(warm "$arch" "$out/$arch/bench/kq_cost" "$c" "$wl"); done
  done
  yuv=$(warm aarch64 "$out/aarch64/bench/kq_cost_libyuv" "$wl")
  echo "| memcpy of the output bytes | $(fmt "${n[aarch64.memcpy]}" $px) | $(fmt "${n[armv7.memcpy]}" $px) |"
  echo "| libyuv NV12Scale bilinear (Debian arm64, NEON) | $(fmt "$yuv" $px) | - |"
  echo "| kq warp only (strengths 0) | $(fmt "${n[aarch64.warp]}" $px) | $(fmt "${n[armv7.warp]}" $px) |"
  for c in nr sharpen chroma; do
    case $c in
      nr) label="noise reduction 3 only" ;;
      sharpen) label="sharpening 0.6 only" ;;
      chroma) label="chroma noise reduction 4 only" ;;
    esac
    echo "| kq $label | $(fmt "${n[aarch64.$c]}" $px), $(fmt_add "${n[aarch64.$c]}" "${n[aarch64.warp]}" $px) | $(fmt "${n[armv7.$c]}" $px), $(fmt_add "${n[armv7.$c]}" "${n[armv7.warp]}" $px) |"
  done
  echo "| kq defaults 3, 4, 0.6 | $(fmt "${n[aarch64.defaults]}" $px) | $(fmt "${n[armv7.defaults]}" $px) |"
  awk -v a="${n[aarch64.warp]}" -v y="$yuv" 'BEGIN { printf "\nbare warp / libyuv on aarch64: %.2f\n", a / y }'
done

read -r name ow oh <<<"$(wl_name 0)"
px=$((ow * oh))
echo
echo "### Stages alone, $name (per output luma pixel in brackets; armv7 / aarch64)"
echo
echo "| stage | aarch64 | armv7 | ratio |"
echo "|---|---|---|---|"
for s in "${stages[@]}"; do
  a=$(warm aarch64 "$out/aarch64/bench/kq_cost" "$s" 0)
  b=$(warm armv7 "$out/armv7/bench/kq_cost" "$s" 0)
  ratio=$(awk -v a="$a" -v b="$b" 'BEGIN { printf "%.2f", (a > 0 ? b / a : 0) }')
  echo "| ${s#stage.} | $(fmt "$a" $px) | $(fmt "$b" $px) | $ratio |"
done

# --- llvm-mca --------------------------------------------------------------------------------
# The hottest loop of each row kernel, taken from a block profile of the defaults call (and of
# the bare warp for the pairs row), fed to llvm-mca. Cycles per output pixel = cycles per loop
# iteration x the loop's iterations in that call / the pixels the stage makes.
echo
echo "### llvm-mca: cycles per iteration of each row's hottest loop, and per output pixel"
echo "(workload $name; models of LLVM 14: aarch64 cortex-a55 (little, in order) and"
echo "cortex-a76 (big; LLVM 14 schedules it with its Cortex-A57 model); armv7 Thumb-2 cortex-a9"
echo "(LLVM's A9 model, also the one it uses for cortex-a15) and cortex-a57 (AArch32))"
lpx=$((ow * oh))
cpx=$((ow / 2 * (oh / 2)))
hpx=$((ow / 4 * (oh / 4)))
for arch in aarch64 armv7; do
  bin=$out/$arch/bench/kq_cost
  for c in defaults warp; do
    prof=$out/counts/$arch/profile.$c
    [[ -s $prof ]] || $(qemu_for "$arch") -plugin "$out/insncount.so,profile=$prof" -d plugin \
      -D /dev/null "$bin" "$c" 0 1 >/dev/null 2>&1
  done
  if [[ $arch == aarch64 ]]; then
    tools=(--nm aarch64-linux-gnu-nm --objdump aarch64-linux-gnu-objdump --triple aarch64
           --cpus cortex-a55,cortex-a76)
  else
    tools=(--nm arm-linux-gnueabi-nm --objdump arm-linux-gnueabi-objdump
           --triple thumbv7-linux-gnueabi --cpus cortex-a9,cortex-a57)
  fi
  echo
  echo "#### $arch"
  python3 bench/arm/arm_profile.py mca "$out/counts/$arch/profile.defaults" "$bin" "${tools[@]}" \
    --mattr "$([[ $arch == armv7 ]] && echo +neon)" --pixels "$lpx" \
    --kernel "warp bilinear:$lpx=kqWarpBilinearRow_neon|plannedRow|plannedGroups" \
    --kernel "warp nearest (U and V):$((2 * cpx))=kqWarpNearestRow_neon|plannedNearest" \
    --kernel "noise filter row:$lpx=kqLumaNrRow_neon|kqLumaNrBlendRow_neon|nrBlendBlocks" \
    --kernel "noise filter border:$lpx=kqLumaNrBorderRun|borderBlock" \
    --kernel "noise filter blend:$lpx=kqLumaBlendRow" \
    --kernel "sharpening row:$lpx=kqSharpenRow_neon|SharpenNeon::row" \
    --kernel "chroma pass 1:$hpx=kqChromaPass1Rows|halfSizeRun<1|halfSizeSteps<1|pass1Inner" \
    --kernel "chroma pass 2:$hpx=kqChromaPass2Rows|halfSizeRun<2|halfSizeSteps<2|pass2Inner" \
    --kernel "chroma pass 3:$cpx=kqChromaPass3Rows|NeonBlocks::pass3|pass3Inner"
  python3 bench/arm/arm_profile.py mca "$out/counts/$arch/profile.warp" "$bin" "${tools[@]}" \
    --mattr "$([[ $arch == armv7 ]] && echo +neon)" --pixels "$cpx" --no-header \
    --kernel "warp pairs:$cpx=kqWarpNearestPairRow_neon"
done
