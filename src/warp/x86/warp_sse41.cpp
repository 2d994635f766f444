// warp_sse41.cpp - SSE4.1 row kernels of the warp stage.
//
// Per block of 8 output pixels (see warp_dsp.h for the arithmetic), in
// 16-bit lanes:
//
//   q     = f0 + off[l]                 off[l] = (l * S) >> 6, <= 224
//   pairs = unpacklo(src[base..], src[base+1..])   bytes (s[j], s[j+1])
//   LR    = pshufb(pairs, 2*idx | (2*idx+1) << 8)   idx = q >> 5
//   h     = maddubs(LR, (32 - f) | f << 8) >> 1      f = q & 31, <= 4080
//   r     = (hUp * (16 - w1) + hLo * w1) >> 8         <= 65280 before >> 8
//   out   = r   (the normalisation is the identity on 0..255)
//
// maddubs cannot saturate: both weights are <= 32 and the sum <= 8160.
// Every block of a vector-range step, the row's last partial block and
// windows at the plane edges (read from a clamped copy) included, takes this
// form; other steps go through the scalar kernel.
//
// Rows with codes and a plan (the tile's rows of one chain) take the block
// origins from the codes and, for every full 16-pixel group, the shuffles
// and weights from the plan (built once per chain), which pick each lane's
// pair straight out of 16 raw source bytes; the bilinear row keeps the lower
// source row's horizontal results for the next call, which in an
// enlargement reads it as its upper row. Nearest rows shuffle one 16-byte
// window per 16 pixels.
#include <smmintrin.h>

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

// The 8 u16 results (0..255) as bytes in the low half. The normalisation
// of warp_dsp.h gives every value in 0..255 back (the kernel checks prove it
// for all 256), so the vector paths leave it out.
inline __m128i packBytes(__m128i r) { return _mm_packus_epi16(r, r); }

// Stores the low `lanes` bytes of n (all 8 when lanes is 8).
inline void storeLanes(uint8_t* dst, __m128i n, int32_t lanes) {
  if (lanes >= 8) {
    _mm_storel_epi64(reinterpret_cast<__m128i*>(dst), n);
    return;
  }
  alignas(16) uint8_t tmp[16];
  _mm_store_si128(reinterpret_cast<__m128i*>(tmp), n);
  std::memcpy(dst, tmp, size_t(lanes));
}

// Nearest-sample plan record of 16 output pixels (blocks 2c and 2c + 1):
// both blocks' lanes as offsets into one 16-byte window at base0 (block
// 2c + 1 adds base1 - base0), when that window lies inside the row and holds
// every lane; else the blocks are done one by one from their codes.
struct NearestRecord {
  uint8_t sel[16];
  int32_t base0;
  int32_t wide;
};
static_assert(sizeof(NearestRecord) <= kKqWarpPlanRecord, "plan record size");

void buildNearestPlan(const KQWarpRow* row) {
  const int32_t chunks = row->count / 16, width = row->srcWidth;
  int32_t off[8];
  for (int32_t l = 0; l < 8; ++l) off[l] = (l * row->step) >> 6;
  for (int32_t c = 0; c < chunks; ++c) {
    NearestRecord rec;
    const int32_t b0 = kqwarp::asr(row->codes[2 * c], 5), f0 = row->codes[2 * c] & 31;
    const int32_t b1 = kqwarp::asr(row->codes[2 * c + 1], 5), f1 = row->codes[2 * c + 1] & 31;
    bool wide = kqwarp::windowFits(b0, 15, width);
    for (int32_t l = 0; l < 8; ++l) {
      const int32_t i0 = (f0 + off[l]) >> 5, i1 = b1 - b0 + ((f1 + off[l]) >> 5);
      if (i1 < 0 || i1 > 15) wide = false;
      rec.sel[l] = uint8_t(i0);
      rec.sel[8 + l] = uint8_t(i1);
    }
    rec.base0 = b0;
    rec.wide = wide ? 1 : 0;
    std::memcpy(row->plan + size_t(c) * kKqWarpPlanRecord, &rec, sizeof rec);
  }
}

// Bilinear plan record of 16 output pixels (blocks 2c and 2c + 1): per
// block, the shuffle bytes (idx, idx + 1) that pick each lane's pair out of
// 16 raw window bytes at its base, and the weight bytes (32 - f, f).
struct BilinearRecord {
  uint8_t sel[2][16];
  uint8_t wts[2][16];
  int32_t base[2];
  int32_t wide;  // 1: both 16-byte windows lie inside the row
};
static_assert(sizeof(BilinearRecord) <= kKqWarpPlanRecord, "plan record size");

void buildBilinearPlan(const KQWarpRow* row, __m128i off) {
  const int32_t chunks = row->count / 16, width = row->srcWidth;
  for (int32_t c = 0; c < chunks; ++c) {
    BilinearRecord rec;
    rec.wide = 1;
    for (int32_t h = 0; h < 2; ++h) {
      const int32_t code = row->codes[2 * c + h];
      const __m128i q = _mm_add_epi16(_mm_set1_epi16(int16_t(code & 31)), off);
      const __m128i f = _mm_and_si128(q, _mm_set1_epi16(31));
      const __m128i wts = _mm_or_si128(_mm_sub_epi16(_mm_set1_epi16(32), f), _mm_slli_epi16(f, 8));
      const __m128i sel = _mm_add_epi16(
          _mm_mullo_epi16(_mm_srli_epi16(q, 5), _mm_set1_epi16(0x0101)), _mm_set1_epi16(0x0100));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(rec.sel[h]), sel);
      _mm_storeu_si128(reinterpret_cast<__m128i*>(rec.wts[h]), wts);
      rec.base[h] = kqwarp::asr(code, 5);
      if (!kqwarp::windowFits(rec.base[h], 15, width)) rec.wide = 0;
    }
    std::memcpy(row->plan + size_t(c) * kKqWarpPlanRecord, &rec, sizeof rec);
  }
  // No source row's horizontal results are kept yet.
  std::memset(row->plan + size_t(chunks + 1) * kKqWarpPlanRecord, 0, 16);
}

// Halved Q5 horizontal interpolation of one block from its plan bytes.
inline __m128i planBlock(const uint8_t* s, int32_t base, const uint8_t* sel, const uint8_t* wts) {
  const __m128i win = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + base));
  return _mm_srli_epi16(
      _mm_maddubs_epi16(
          _mm_shuffle_epi8(win, _mm_loadu_si128(reinterpret_cast<const __m128i*>(sel))),
          _mm_loadu_si128(reinterpret_cast<const __m128i*>(wts))),
      1);
}

}  // namespace

void kqWarpBilinearRow_sse41(uint8_t* dst, ptrdiff_t dstStride, const KQWarpRow* row) {
  // Steps outside the vector range: the 32-bit lane arithmetic throughout.
  if (!kqwarp::vectorStep(row->step)) {
    kqWarpBilinearRow_c(dst, dstStride, row);
    return;
  }
  const int32_t count = row->count, rows = row->rows, width = row->srcWidth;
  const __m128i off = laneOffsets(row->step);
  const __m128i mask31 = _mm_set1_epi16(31), v32 = _mm_set1_epi16(32);
  const __m128i pairIdx = _mm_set1_epi16(0x0202), pairBias = _mm_set1_epi16(0x0100);
  uint8_t edgeU[16] = {}, edgeL[16] = {};
  const uint8_t* s0 = row->src0;
  const uint8_t* s1 = row->src1;
  float p = row->x;
  int32_t start = 0;
  if (row->codes != nullptr && row->plan != nullptr && row->planReady != nullptr) {
    // The tile's chain: shuffles and weights come from the plan, and the
    // lower row's horizontal results are kept after the records for the next
    // call, whose upper row it usually is.
    if (*row->planReady == 0) {
      buildBilinearPlan(row, off);
      *row->planReady = 1;
    }
    const int32_t full = count / 16 * 16;
    uint8_t* keptTag = row->plan + size_t(full / 16 + 1) * kKqWarpPlanRecord;
    __m128i* kept = reinterpret_cast<__m128i*>(keptTag + 16);
    const uint8_t* keptRow;
    std::memcpy(&keptRow, keptTag, sizeof keptRow);
    const bool reuse = keptRow == s0;
    for (; start < full; start += 16) {
      const uint8_t* rec = row->plan + size_t(start / 16) * kKqWarpPlanRecord;
      int32_t bw[3];  // base0, base1, wide
      std::memcpy(bw, rec + 64, sizeof bw);
      for (int32_t h = 0; h < 2; ++h) {
        const int32_t at = start + 8 * h;
        __m128i hu, hl;
        if (bw[2]) {
          hu = reuse ? _mm_loadu_si128(kept + at / 8)
                     : planBlock(s0, bw[h], rec + 16 * h, rec + 32 + 16 * h);
          hl = planBlock(s1, bw[h], rec + 16 * h, rec + 32 + 16 * h);
        } else {
          const __m128i q = _mm_add_epi16(_mm_set1_epi16(int16_t(row->codes[at / 8] & 31)), off);
          const __m128i f = _mm_and_si128(q, mask31);
          const __m128i wts = _mm_or_si128(_mm_sub_epi16(v32, f), _mm_slli_epi16(f, 8));
          const __m128i sel =
              _mm_add_epi16(_mm_mullo_epi16(_mm_srli_epi16(q, 5), pairIdx), pairBias);
          const uint8_t* u = kqwarp::blockWindow(s0, bw[h], 8, width, edgeU);
          const uint8_t* l = kqwarp::blockWindow(s1, bw[h], 8, width, edgeL);
          const __m128i pu = _mm_unpacklo_epi8(loadl(u), loadl(u + 1));
          const __m128i pl = _mm_unpacklo_epi8(loadl(l), loadl(l + 1));
          hu = _mm_srli_epi16(_mm_maddubs_epi16(_mm_shuffle_epi8(pu, sel), wts), 1);
          hl = _mm_srli_epi16(_mm_maddubs_epi16(_mm_shuffle_epi8(pl, sel), wts), 1);
        }
        _mm_storeu_si128(kept + at / 8, hl);
        // hu * (16 - w1) + hl * w1 = hu * 16 + (hl - hu) * w1; the true sum
        // is 0..65280, so the wrapping 16-bit arithmetic gives it exactly.
        const __m128i hu4 = _mm_slli_epi16(hu, 4), d = _mm_sub_epi16(hl, hu);
        for (int32_t r = 0; r < rows; ++r) {
          const __m128i v = _mm_srli_epi16(
              _mm_add_epi16(hu4, _mm_mullo_epi16(d, _mm_set1_epi16(int16_t(row->w1[r])))), 8);
          _mm_storel_epi64(reinterpret_cast<__m128i*>(dst + r * dstStride + at), packBytes(v));
        }
      }
    }
    std::memcpy(keptTag, &s1, sizeof s1);
  }
  for (; start < count; start += 8) {
    int32_t base, phase;
    if (row->codes != nullptr) {
      base = kqwarp::asr(row->codes[start / 8], 5);
      phase = row->codes[start / 8] & 31;
    } else {
      kqwarp::blockOriginFast(p, &base, &phase);
      p = p + row->blockStep;
    }
    const uint8_t* u = kqwarp::blockWindow(s0, base, 8, width, edgeU);
    const uint8_t* l = kqwarp::blockWindow(s1, base, 8, width, edgeL);
    const int32_t lanes = count - start < 8 ? count - start : 8;
    const __m128i q = _mm_add_epi16(_mm_set1_epi16(int16_t(phase)), off);
    const __m128i f = _mm_and_si128(q, mask31);
    // Byte weights (32 - f, f) per lane, and the byte pair (2i, 2i + 1)
    // that picks (s[base+i], s[base+i+1]) out of the interleaved window.
    const __m128i wts = _mm_or_si128(_mm_sub_epi16(v32, f), _mm_slli_epi16(f, 8));
    const __m128i sel = _mm_add_epi16(_mm_mullo_epi16(_mm_srli_epi16(q, 5), pairIdx), pairBias);
    const __m128i pu = _mm_unpacklo_epi8(loadl(u), loadl(u + 1));
    const __m128i pl = _mm_unpacklo_epi8(loadl(l), loadl(l + 1));
    const __m128i hu = _mm_srli_epi16(_mm_maddubs_epi16(_mm_shuffle_epi8(pu, sel), wts), 1);
    const __m128i hl = _mm_srli_epi16(_mm_maddubs_epi16(_mm_shuffle_epi8(pl, sel), wts), 1);
    // The horizontal results serve every output row of the group.
    for (int32_t r = 0; r < rows; ++r) {
      const __m128i w1 = _mm_set1_epi16(int16_t(row->w1[r]));
      const __m128i w0 = _mm_set1_epi16(int16_t(16 - row->w1[r]));
      const __m128i v =
          _mm_srli_epi16(_mm_add_epi16(_mm_mullo_epi16(hu, w0), _mm_mullo_epi16(hl, w1)), 8);
      storeLanes(dst + r * dstStride + start, packBytes(v), lanes);
    }
  }
}

void kqWarpNearestRow_sse41(uint8_t* dst, const KQWarpRow* row) {
  if (!kqwarp::vectorStep(row->step)) {
    kqWarpNearestRow_c(dst, row);
    return;
  }
  const int32_t count = row->count, width = row->srcWidth;
  const __m128i off = laneOffsets(row->step);
  uint8_t edge[16] = {};
  const uint8_t* s0 = row->src0;
  float p = row->x;
  int32_t start = 0;
  if (row->codes != nullptr && row->plan != nullptr && row->planReady != nullptr) {
    // The tile's chain: one shuffle of one 16-byte window per 16 pixels.
    if (*row->planReady == 0) {
      buildNearestPlan(row);
      *row->planReady = 1;
    }
    const int32_t full = count / 16 * 16;
    for (; start < full; start += 16) {
      const uint8_t* rec = row->plan + size_t(start / 16) * kKqWarpPlanRecord;
      int32_t bw[2];  // base0, wide
      std::memcpy(bw, rec + 16, sizeof bw);
      if (bw[1]) {
        const __m128i sel = _mm_loadu_si128(reinterpret_cast<const __m128i*>(rec));
        const __m128i win = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s0 + bw[0]));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + start), _mm_shuffle_epi8(win, sel));
        continue;
      }
      for (int32_t j = start / 8; j < start / 8 + 2; ++j) {
        const int32_t base = kqwarp::asr(row->codes[j], 5), phase = row->codes[j] & 31;
        const uint8_t* w = kqwarp::blockWindow(s0, base, 7, width, edge);
        const __m128i idx = _mm_srli_epi16(_mm_add_epi16(_mm_set1_epi16(int16_t(phase)), off), 5);
        storeLanes(dst + j * 8, _mm_shuffle_epi8(loadl(w), _mm_packus_epi16(idx, idx)), 8);
      }
    }
  }
  for (; start < count; start += 8) {
    int32_t base, phase;
    if (row->codes != nullptr) {
      base = kqwarp::asr(row->codes[start / 8], 5);
      phase = row->codes[start / 8] & 31;
    } else {
      kqwarp::blockOriginFast(p, &base, &phase);
      p = p + row->blockStep;
    }
    const uint8_t* w = kqwarp::blockWindow(s0, base, 7, width, edge);
    const __m128i idx = _mm_srli_epi16(_mm_add_epi16(_mm_set1_epi16(int16_t(phase)), off), 5);
    const __m128i v = _mm_shuffle_epi8(loadl(w), _mm_packus_epi16(idx, idx));
    storeLanes(dst + start, v, count - start < 8 ? count - start : 8);
  }
}
