// warp_avx2.cpp - AVX2 bilinear row kernel of the warp stage.
//
// Same arithmetic as the SSE4.1 kernel (see warp_dsp.h and warp_sse41.cpp),
// two blocks of 8 pixels per step: block j in the low 128-bit half, block
// j + 1 in the high half, since pshufb and maddubs work within halves.
// Each block keeps its own origin (base, f0), taken from the float position
// chain p(j), p(j + 1) = p(j) + 8*D exactly as the other versions do, or
// from the tile's codes of that chain. A window that leaves the row is read
// from a clamped copy, and a last lone block uses the 8-pixel SSE form, so
// every block of a vector-range step is done in vector form.
//
// Rows with codes and a plan (the tile's rows of one chain) take their
// shuffles and weights from the plan, built once per chain, read each
// block's 16 source bytes directly when they lie inside the row, and keep
// the lower source row's horizontal results for the next call, which in an
// enlargement reads it as its upper row.
#include <immintrin.h>

#include <cstring>

#include "warp/warp_dsp.h"

namespace {

inline __m128i laneOffsets(int32_t step) {
  return _mm_setr_epi16(0, int16_t(step >> 6), int16_t((2 * step) >> 6), int16_t((3 * step) >> 6),
                        int16_t((4 * step) >> 6), int16_t((5 * step) >> 6),
                        int16_t((6 * step) >> 6), int16_t((7 * step) >> 6));
}

inline __m128i loadl(const uint8_t* p) {
  return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p));
}

// (s[base + i], s[base + i + 1]) byte pairs for i = 0..7.
inline __m128i pairs(const uint8_t* s) { return _mm_unpacklo_epi8(loadl(s), loadl(s + 1)); }

struct Consts {
  __m256i off, mask31, v32, pairIdx, pairBias;
};

// Horizontal pass of two blocks (u = upper-row window, l = lower-row window
// of each block, see kqwarp::blockWindow): halved Q5 interpolations of the upper and
// lower source rows, 16 u16 lanes each (<= 4080).
inline void horizontal16(const Consts& k, const uint8_t* u0, const uint8_t* l0, int32_t f0,
                         const uint8_t* u1, const uint8_t* l1, int32_t f1, __m256i* hu,
                         __m256i* hl) {
  const __m256i phase = _mm256_setr_m128i(_mm_set1_epi16(int16_t(f0)), _mm_set1_epi16(int16_t(f1)));
  const __m256i q = _mm256_add_epi16(phase, k.off);
  const __m256i f = _mm256_and_si256(q, k.mask31);
  const __m256i wts = _mm256_or_si256(_mm256_sub_epi16(k.v32, f), _mm256_slli_epi16(f, 8));
  const __m256i sel =
      _mm256_add_epi16(_mm256_mullo_epi16(_mm256_srli_epi16(q, 5), k.pairIdx), k.pairBias);
  const __m256i pu = _mm256_setr_m128i(pairs(u0), pairs(u1));
  const __m256i pl = _mm256_setr_m128i(pairs(l0), pairs(l1));
  *hu = _mm256_srli_epi16(_mm256_maddubs_epi16(_mm256_shuffle_epi8(pu, sel), wts), 1);
  *hl = _mm256_srli_epi16(_mm256_maddubs_epi16(_mm256_shuffle_epi8(pl, sel), wts), 1);
}

// Vertical blend of both blocks, as 16 bytes. The results are
// 0..255, where the normalisation of warp_dsp.h gives its input back (the
// kernel checks prove this for all 256 values), so they are packed as they
// are.
inline __m128i finish16(__m256i hu, __m256i hl, __m256i w0, __m256i w1) {
  const __m256i v = _mm256_srli_epi16(
      _mm256_add_epi16(_mm256_mullo_epi16(hu, w0), _mm256_mullo_epi16(hl, w1)), 8);
  return _mm_packus_epi16(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1));
}

// One block in 128-bit form (the SSE4.1 arithmetic), `lanes` (1..8) pixels
// of it for all output rows.
inline void block8(const Consts& k, const KQWarpRow* row, uint8_t* dst, ptrdiff_t dstStride,
                   const uint8_t* u, const uint8_t* l, int32_t phase, int32_t lanes) {
  const __m128i q = _mm_add_epi16(_mm_set1_epi16(int16_t(phase)), _mm256_castsi256_si128(k.off));
  const __m128i f = _mm_and_si128(q, _mm_set1_epi16(31));
  const __m128i wts = _mm_or_si128(_mm_sub_epi16(_mm_set1_epi16(32), f), _mm_slli_epi16(f, 8));
  const __m128i sel = _mm_add_epi16(_mm_mullo_epi16(_mm_srli_epi16(q, 5), _mm_set1_epi16(0x0202)),
                                    _mm_set1_epi16(0x0100));
  const __m128i hu = _mm_srli_epi16(_mm_maddubs_epi16(_mm_shuffle_epi8(pairs(u), sel), wts), 1);
  const __m128i hl = _mm_srli_epi16(_mm_maddubs_epi16(_mm_shuffle_epi8(pairs(l), sel), wts), 1);
  for (int32_t r = 0; r < row->rows; ++r) {
    const __m128i w1 = _mm_set1_epi16(int16_t(row->w1[r]));
    const __m128i w0 = _mm_set1_epi16(int16_t(16 - row->w1[r]));
    const __m128i v =
        _mm_srli_epi16(_mm_add_epi16(_mm_mullo_epi16(hu, w0), _mm_mullo_epi16(hl, w1)), 8);
    const __m128i n = _mm_packus_epi16(v, v);
    uint8_t* out = dst + r * dstStride;
    if (lanes == 8) {
      _mm_storel_epi64(reinterpret_cast<__m128i*>(out), n);
    } else {
      alignas(16) uint8_t tmp[16];
      _mm_store_si128(reinterpret_cast<__m128i*>(tmp), n);
      std::memcpy(out, tmp, size_t(lanes));
    }
  }
}

// Origin of block j: from the tile's codes when it gave them, else the
// next step of the float chain (p is advanced).
inline void nextOrigin(const KQWarpRow* row, int32_t j, float* p, int32_t* base, int32_t* phase) {
  if (row->codes != nullptr) {
    *base = kqwarp::asr(row->codes[j], 5);
    *phase = row->codes[j] & 31;
  } else {
    kqwarp::blockOriginFast(*p, base, phase);
    *p = *p + row->blockStep;
  }
}

// Plan record of 16 output pixels (blocks 2c and 2c + 1). The two blocks'
// windows are read as 16 raw bytes each, block 2c in the low half and
// 2c + 1 in the high half, so a lane's pair (s[idx], s[idx + 1]) is picked
// by the shuffle bytes (idx, idx + 1) directly; weights as in horizontal16.
struct PlanRecord {
  uint8_t sel[32];
  uint8_t wts[32];
  int32_t base0, base1;
  int32_t wide;  // 1: both 16-byte windows lie inside the row
  int32_t pad;
};
static_assert(sizeof(PlanRecord) <= kKqWarpPlanRecord, "plan record size");

void buildPlan(const Consts& k, const KQWarpRow* row) {
  const int32_t chunks = row->count / 16, width = row->srcWidth;
  for (int32_t c = 0; c < chunks; ++c) {
    PlanRecord rec;
    const int32_t b0 = kqwarp::asr(row->codes[2 * c], 5), f0 = row->codes[2 * c] & 31;
    const int32_t b1 = kqwarp::asr(row->codes[2 * c + 1], 5), f1 = row->codes[2 * c + 1] & 31;
    const __m256i phase =
        _mm256_setr_m128i(_mm_set1_epi16(int16_t(f0)), _mm_set1_epi16(int16_t(f1)));
    const __m256i q = _mm256_add_epi16(phase, k.off);
    const __m256i f = _mm256_and_si256(q, k.mask31);
    const __m256i wts = _mm256_or_si256(_mm256_sub_epi16(k.v32, f), _mm256_slli_epi16(f, 8));
    const __m256i sel = _mm256_add_epi16(
        _mm256_mullo_epi16(_mm256_srli_epi16(q, 5), _mm256_set1_epi16(0x0101)), k.pairBias);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(rec.sel), sel);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(rec.wts), wts);
    rec.base0 = b0;
    rec.base1 = b1;
    rec.wide = kqwarp::windowFits(b0, 15, width) && kqwarp::windowFits(b1, 15, width) ? 1 : 0;
    rec.pad = 0;
    std::memcpy(row->plan + size_t(c) * kKqWarpPlanRecord, &rec, sizeof rec);
  }
  // No source row's horizontal results are kept yet.
  std::memset(row->plan + size_t(chunks + 1) * kKqWarpPlanRecord, 0, 16);
}

inline __m256i window32(const uint8_t* s, int32_t b0, int32_t b1) {
  return _mm256_inserti128_si256(
      _mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(s + b0))),
      _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + b1)), 1);
}

// Vertical blend in one product: hu * (16 - w1) + hl * w1 equals
// hu * 16 + (hl - hu) * w1, and since the true sum lies in 0..65280 the
// wrapping 16-bit arithmetic gives it exactly.
inline __m128i blend16(__m256i hu, __m256i d, __m256i w1) {
  const __m256i v =
      _mm256_srli_epi16(_mm256_add_epi16(_mm256_slli_epi16(hu, 4), _mm256_mullo_epi16(d, w1)), 8);
  return _mm_packus_epi16(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1));
}

// Horizontal results of the full 16-pixel group at start (the plan record
// rec). Reuse: kept[] already holds the upper row's; the lower row's are
// always stored there.
template <bool Reuse>
inline void planHorizontal(const Consts& k, const KQWarpRow* row, int32_t start, __m256i* kept,
                           uint8_t (*edge)[16], __m256i* hu, __m256i* hl) {
  const uint8_t* s0 = row->src0;
  const uint8_t* s1 = row->src1;
  const uint8_t* rec = row->plan + size_t(start / 16) * kKqWarpPlanRecord;
  int32_t bw[3];  // base0, base1, wide
  std::memcpy(bw, rec + 64, sizeof bw);
  if (bw[2]) {
    const __m256i sel = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(rec));
    const __m256i wts = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(rec + 32));
    if (Reuse)
      *hu = _mm256_loadu_si256(kept + start / 16);
    else
      *hu = _mm256_srli_epi16(
          _mm256_maddubs_epi16(_mm256_shuffle_epi8(window32(s0, bw[0], bw[1]), sel), wts), 1);
    *hl = _mm256_srli_epi16(
        _mm256_maddubs_epi16(_mm256_shuffle_epi8(window32(s1, bw[0], bw[1]), sel), wts), 1);
  } else {
    const int32_t j = start / 8, width = row->srcWidth;
    horizontal16(k, kqwarp::blockWindow(s0, bw[0], 8, width, edge[0]),
                 kqwarp::blockWindow(s1, bw[0], 8, width, edge[1]), row->codes[j] & 31,
                 kqwarp::blockWindow(s0, bw[1], 8, width, edge[2]),
                 kqwarp::blockWindow(s1, bw[1], 8, width, edge[3]), row->codes[j + 1] & 31, hu, hl);
  }
  _mm256_storeu_si256(kept + start / 16, *hl);
}

// Vertical blend of 16 pixels as u16 lanes (see blend16).
inline __m256i blendWide(__m256i hu4, __m256i d, __m256i w1) {
  return _mm256_srli_epi16(_mm256_add_epi16(hu4, _mm256_mullo_epi16(d, w1)), 8);
}

// Full 16-pixel groups of a planned row, two at a time where it can, so
// that each output row gets one 32-byte store per pair.
template <bool Reuse>
void planGroups(const Consts& k, const KQWarpRow* row, uint8_t* dst, ptrdiff_t dstStride,
                const __m256i* w1, __m256i* kept, int32_t full, uint8_t (*edge)[16]) {
  const int32_t rows = row->rows;
  int32_t start = 0;
  for (; start + 32 <= full; start += 32) {
    __m256i hua, hla, hub, hlb;
    planHorizontal<Reuse>(k, row, start, kept, edge, &hua, &hla);
    planHorizontal<Reuse>(k, row, start + 16, kept, edge, &hub, &hlb);
    const __m256i da = _mm256_sub_epi16(hla, hua), db = _mm256_sub_epi16(hlb, hub);
    const __m256i ua = _mm256_slli_epi16(hua, 4), ub = _mm256_slli_epi16(hub, 4);
    for (int32_t r = 0; r < rows; ++r) {
      // packus interleaves the halves; the permute puts the 32 bytes back
      // in pixel order.
      const __m256i n = _mm256_permute4x64_epi64(
          _mm256_packus_epi16(blendWide(ua, da, w1[r]), blendWide(ub, db, w1[r])), 0xD8);
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + r * dstStride + start), n);
      // Rows of a tile are short pieces of long plane rows, too short for
      // the hardware to start streaming them; fetching the lines a few
      // stores ahead hides most of the read-for-ownership misses.
      if (start + 320 < full)
        _mm_prefetch(reinterpret_cast<const char*>(dst + r * dstStride + start + 320), _MM_HINT_T0);
    }
  }
  if (start < full) {
    __m256i hu, hl;
    planHorizontal<Reuse>(k, row, start, kept, edge, &hu, &hl);
    const __m256i d = _mm256_sub_epi16(hl, hu);
    for (int32_t r = 0; r < rows; ++r)
      _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + r * dstStride + start),
                       blend16(hu, d, w1[r]));
  }
}

}  // namespace

void kqWarpBilinearRow_avx2(uint8_t* dst, ptrdiff_t dstStride, const KQWarpRow* row) {
  // Steps outside the vector range: the 32-bit lane arithmetic throughout.
  if (!kqwarp::vectorStep(row->step)) {
    kqWarpBilinearRow_c(dst, dstStride, row);
    return;
  }
  const int32_t count = row->count, rows = row->rows, width = row->srcWidth;
  Consts k;
  const __m128i off = laneOffsets(row->step);
  k.off = _mm256_setr_m128i(off, off);
  k.mask31 = _mm256_set1_epi16(31);
  k.v32 = _mm256_set1_epi16(32);
  k.pairIdx = _mm256_set1_epi16(0x0202);
  k.pairBias = _mm256_set1_epi16(0x0100);
  __m256i w0[kKqWarpMaxRows], w1[kKqWarpMaxRows];
  for (int32_t r = 0; r < rows; ++r) {
    w1[r] = _mm256_set1_epi16(int16_t(row->w1[r]));
    w0[r] = _mm256_set1_epi16(int16_t(16 - row->w1[r]));
  }
  // Clamped copies for blocks whose window leaves the row (upper and lower
  // row of each of the two blocks).
  uint8_t edge[4][16] = {};
  const uint8_t* s0 = row->src0;
  const uint8_t* s1 = row->src1;
  float p = row->x;
  int32_t start = 0;
  if (row->codes != nullptr && row->plan != nullptr && row->planReady != nullptr) {
    // The tile's chain: the plan holds every full 16-pixel group's shuffles
    // and weights, so a row is loads, two shuffles, two multiply-adds and
    // the blends.
    if (*row->planReady == 0) {
      buildPlan(k, row);
      *row->planReady = 1;
    }
    // The lower row's horizontal results are kept after the records: in an
    // enlargement the next call's upper row is this call's lower row, and
    // the same chain gives it the same values.
    const int32_t full = count / 16 * 16;
    uint8_t* keptTag = row->plan + size_t(full / 16 + 1) * kKqWarpPlanRecord;
    __m256i* kept = reinterpret_cast<__m256i*>(keptTag + 16);
    const uint8_t* keptRow;
    std::memcpy(&keptRow, keptTag, sizeof keptRow);
    if (keptRow == s0)
      planGroups<true>(k, row, dst, dstStride, w1, kept, full, edge);
    else
      planGroups<false>(k, row, dst, dstStride, w1, kept, full, edge);
    start = full;
    std::memcpy(keptTag, &s1, sizeof s1);
  }
  for (; start + 8 < count; start += 16) {
    int32_t b0, f0, b1, f1;
    nextOrigin(row, start / 8, &p, &b0, &f0);
    nextOrigin(row, start / 8 + 1, &p, &b1, &f1);
    __m256i hu, hl;
    horizontal16(k, kqwarp::blockWindow(s0, b0, 8, width, edge[0]),
                 kqwarp::blockWindow(s1, b0, 8, width, edge[1]), f0,
                 kqwarp::blockWindow(s0, b1, 8, width, edge[2]),
                 kqwarp::blockWindow(s1, b1, 8, width, edge[3]), f1, &hu, &hl);
    if (start + 16 <= count) {
      for (int32_t r = 0; r < rows; ++r)
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + r * dstStride + start),
                         finish16(hu, hl, w0[r], w1[r]));
    } else {
      // Last pair of blocks, the second one partial.
      alignas(16) uint8_t tmp[16];
      for (int32_t r = 0; r < rows; ++r) {
        _mm_store_si128(reinterpret_cast<__m128i*>(tmp), finish16(hu, hl, w0[r], w1[r]));
        std::memcpy(dst + r * dstStride + start, tmp, size_t(count - start));
      }
    }
  }
  // A last lone block of 1..8 pixels.
  if (start < count) {
    int32_t b0, f0;
    nextOrigin(row, start / 8, &p, &b0, &f0);
    block8(k, row, dst + start, dstStride, kqwarp::blockWindow(s0, b0, 8, width, edge[0]),
           kqwarp::blockWindow(s1, b0, 8, width, edge[1]), f0, count - start);
  }
}
