#!/usr/bin/env bash
# Times the whole exported call beside what users would call instead (OpenCV resize, libyuv
# NV12Scale, an OpenCV pipeline with our default stages, a memcpy of the output), on the same
# NV21 inputs in one run, warm (the same call repeated in one process) and cold (the first call
# in a fresh process). Every round runs each case once warm, in one process and in random order,
# then once cold, one process per case in shuffled order, so that both see the same share of
# whatever else the machine is doing. Prints tables of the medians over the rounds and draws
# docs/bench_call.png.
#   scripts/bench-call.sh [rounds]     default 11 (at least 9); about 4 minutes on 2 cores
set -euo pipefail
cd "$(dirname "$0")/.."

reps=${1:-11}
if ! [[ "$reps" =~ ^[0-9]+$ ]] || ((reps < 9)); then
  echo "usage: scripts/bench-call.sh [rounds >= 9]" >&2
  exit 2
fi

scripts/install-deps.sh --bench
build=build-bench-call
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DKQ_BUILD_BENCH=ON \
  -DKQ_BUILD_TESTS=OFF -DKQ_BUILD_TOOLS=OFF >/dev/null
cmake --build "$build" -j2 --target kq_bench_call >/dev/null
bench="$build/bench/kq_bench_call"
results="$build/bench-call-results"
rm -rf "$results"
mkdir -p "$results"

# The matplotlib that install-deps.sh puts in place belongs to Debian's python3, which need not
# be the first python3 on the PATH.
python=/usr/bin/python3
[[ -x "$python" ]] || python=python3

model=$(grep -m1 '^model name' /proc/cpuinfo | cut -d: -f2- | sed 's/^ *//' || true)
[[ -n "$model" ]] || model=$(uname -m)
machine="$model, $(nproc) CPUs"
if grep -qw avx512vbmi /proc/cpuinfo && grep -qw avx512bw /proc/cpuinfo; then
  machine+=", AVX-512"
elif grep -qw avx2 /proc/cpuinfo; then
  machine+=", AVX2"
fi
# The library's revision: the last commit that changed its sources or build.
revision=$(git log -1 --format=%h -- src include cmake CMakeLists.txt 2>/dev/null || true)
[[ -n "$revision" ]] || revision=unknown
if ! git diff --quiet HEAD -- src include cmake CMakeLists.txt 2>/dev/null; then
  revision+=" with local changes"
fi
cut -d' ' -f1 /proc/loadavg >"$results/load.txt"

echo "== outputs checked against OpenCV's resize of the same region (PSNR)"
"$bench" --verify | tee "$results/verify.txt"

"$bench" --list >"$results/cases.txt"
mapfile -t cases <"$results/cases.txt"
echo "== $reps rounds of ${#cases[@]} cases, warm then cold"
for ((r = 1; r <= reps; ++r)); do
  "$bench" --benchmark_repetitions=1 --benchmark_enable_random_interleaving=true \
    --benchmark_min_time=0.1 --benchmark_out="$results/warm-$r.json" \
    --benchmark_out_format=json 2>>"$results/warm.log"
  while read -r c; do
    "$bench" --cold="$c" >>"$results/cold.txt"
  done < <(shuf "$results/cases.txt")
  cut -d' ' -f1 /proc/loadavg >>"$results/load.txt"
  echo "round $r done (${SECONDS} s)"
done
load=$(sort -n "$results/load.txt" | sed -n '1p;$p' | paste -sd-)

echo
"$python" scripts/bench-call-report.py --cases "$results/cases.txt" --cold "$results/cold.txt" \
  --warm "$results"/warm-*.json \
  --machine "$machine" --date "$(date +%Y-%m-%d)" --revision "$revision" \
  --load "$load" --md "$results/summary.md" --png docs/bench_call.png
echo "raw results: $results/"
