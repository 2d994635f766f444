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
// Bilinear rows with codes and a plan (the tile's rows of one chain, at
// least 16 pixels) go by groups of 16 pixels, the last group ending at the
// row's end (it overlaps the one before and writes the same bytes there
// again). The plan, built once per chain, holds each group's windows,
// shuffles and weights; the even and odd pixels of a group are computed in
// separate vectors, so that the output bytes come out of one byte blend;
// and the lower source row's horizontal results are kept for the next call,
// which in an enlargement reads that row as its upper row. Nearest rows
// with codes shuffle one 16-byte window per 16 pixels.
#include <smmintrin.h>

#include <cstdint>
#include <cstring>
#include <new>

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

// Bilinear plan record of the 16 output pixels k0 .. k0 + 15 of a group:
// the even pixels are computed in one vector and the odd ones in another,
// each shuffling its lanes' pairs out of a 16-byte window
// (kqwarp::pairWindows); in an enlargement by about 1.1 or more one window
// serves both parities.
struct alignas(16) BilinearRecord {
  uint8_t sel[2][16];  // [parity]
  uint8_t wts[2][16];
  int32_t win[2];  // [parity] window starts
  int32_t form;    // KQWarpPairForm
  int32_t k0;
};
static_assert(sizeof(BilinearRecord) <= kKqWarpPlanRecord, "plan record size");

// Where a bilinear plan's parts lie: the records from the first 16-byte
// boundary of the plan, then 32 bytes that name the source row whose
// horizontal results are kept, then those results (32 bytes per record).
struct BilinearLayout {
  BilinearRecord* records;
  uint8_t* keptTag;
  __m128i* kept;
};

inline BilinearLayout bilinearLayout(uint8_t* plan, int32_t groups) {
  const size_t skip = (16 - (reinterpret_cast<uintptr_t>(plan) & 15)) & 15;
  uint8_t* base = plan + skip;
  BilinearLayout l;
  l.records = reinterpret_cast<BilinearRecord*>(base);
  l.keptTag = base + size_t(groups) * sizeof(BilinearRecord);
  l.kept = reinterpret_cast<__m128i*>(l.keptTag + 32);
  return l;
}

void buildBilinearPlan(const KQWarpRow* row, const BilinearLayout& l, int32_t groups) {
  for (int32_t c = 0; c < groups; ++c) {
    BilinearRecord rec;
    std::memset(&rec, 0, sizeof rec);
    rec.k0 = c == groups - 1 ? row->count - 16 : 16 * c;
    rec.form = kqwarp::kPairsNone;
    for (int32_t form = kqwarp::kPairsShared; form < kqwarp::kPairsNone; ++form)
      if (kqwarp::pairWindows(row->codes, row->step, rec.k0, row->srcWidth, form, rec.win, rec.sel,
                              rec.wts)) {
        rec.form = form;
        break;
      }
    new (&l.records[c]) BilinearRecord(rec);
  }
  // No source row's horizontal results are kept yet.
  std::memset(l.keptTag, 0, 32);
}

// Halved Q5 interpolations of the 8 lanes whose pairs sel picks out of w.
inline __m128i pairPass(__m128i w, const uint8_t* sel, const uint8_t* wts) {
  return _mm_srli_epi16(
      _mm_maddubs_epi16(_mm_shuffle_epi8(w, _mm_load_si128(reinterpret_cast<const __m128i*>(sel))),
                        _mm_load_si128(reinterpret_cast<const __m128i*>(wts))),
      1);
}

// Even and odd horizontal results of a group from source row s, straight
// from the row (shared and split forms).
inline void fastPairs(const BilinearRecord& rec, const uint8_t* s, __m128i* even, __m128i* odd) {
  const __m128i we = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + rec.win[0]));
  const __m128i wo = rec.form == kqwarp::kPairsShared
                         ? we
                         : _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + rec.win[1]));
  *even = pairPass(we, rec.sel[0], rec.wts[0]);
  *odd = pairPass(wo, rec.sel[1], rec.wts[1]);
}

// The same for the copy and no-window forms, which only groups at the plane
// edges or steps near 1 take: from copies of the clamped columns, or lane by
// lane in the 32-bit arithmetic.
__attribute__((noinline)) void edgePairs(const BilinearRecord& rec, const KQWarpRow* row,
                                         const uint8_t* s, __m128i* even, __m128i* odd) {
  const int32_t width = row->srcWidth;
  if (rec.form == kqwarp::kPairsCopy) {
    alignas(16) uint8_t buf[2][16];
    for (int32_t p = 0; p < 2; ++p)
      for (int32_t i = 0; i < 16; ++i) buf[p][i] = s[kqwarp::clampCol(rec.win[p] + i, width)];
    *even =
        pairPass(_mm_load_si128(reinterpret_cast<const __m128i*>(buf[0])), rec.sel[0], rec.wts[0]);
    *odd =
        pairPass(_mm_load_si128(reinterpret_cast<const __m128i*>(buf[1])), rec.sel[1], rec.wts[1]);
    return;
  }
  alignas(16) uint16_t h[2][8];
  for (int32_t i = 0; i < 8; ++i)
    for (int32_t p = 0; p < 2; ++p)
      h[p][i] = kqwarp::pixelHorizontal(s, row->codes, row->step, rec.k0 + 2 * i + p, width);
  *even = _mm_load_si128(reinterpret_cast<const __m128i*>(h[0]));
  *odd = _mm_load_si128(reinterpret_cast<const __m128i*>(h[1]));
}

// Blends and stores the R output rows of a group from its upper (ue, uo)
// and lower (le, lo) horizontal results: hu * (16 - w1) + hl * w1 = hu * 16
// + (hl - hu) * w1, whose true value (0..65280) the wrapping 16-bit
// arithmetic gives exactly, so that its high byte is the pixel; the even
// pixels' sums are shifted down to the low bytes, the odd pixels' high bytes
// are kept.
template <int R>
inline void blendGroup(uint8_t* out, ptrdiff_t dstStride, const __m128i* w1, __m128i ue, __m128i uo,
                       __m128i le, __m128i lo) {
  const __m128i oddBytes = _mm_set1_epi16(int16_t(0xFF00));
  const __m128i de = _mm_sub_epi16(le, ue), dod = _mm_sub_epi16(lo, uo);
  const __m128i ue16 = _mm_slli_epi16(ue, 4), uo16 = _mm_slli_epi16(uo, 4);
  for (int32_t r = 0; r < R; ++r) {
    const __m128i ve = _mm_add_epi16(ue16, _mm_mullo_epi16(de, w1[r]));
    const __m128i vo = _mm_add_epi16(uo16, _mm_mullo_epi16(dod, w1[r]));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + r * dstStride),
                     _mm_blendv_epi8(_mm_srli_epi16(ve, 8), vo, oddBytes));
  }
}

// The groups of a planned bilinear row with R output rows, those read
// straight from the source rows first, then the few others, so that the
// main loop makes no calls. Reuse: kept already holds the upper row's
// results; the lower row's are always stored there.
template <int R, bool Reuse>
void bilinearGroups(const KQWarpRow* row, uint8_t* dst, ptrdiff_t dstStride,
                    const BilinearLayout& l, int32_t groups) {
  __m128i w1[R];
  for (int32_t r = 0; r < R; ++r) w1[r] = _mm_set1_epi16(int16_t(row->w1[r]));
  bool edges = false;
  for (int32_t c = 0; c < groups; ++c) {
    const BilinearRecord& rec = l.records[c];
    if (rec.form > kqwarp::kPairsSplit) {
      edges = true;
      continue;
    }
    __m128i ue, uo, le, lo;
    fastPairs(rec, row->src1, &le, &lo);
    if (Reuse) {
      ue = _mm_load_si128(l.kept + 2 * c);
      uo = _mm_load_si128(l.kept + 2 * c + 1);
    } else {
      fastPairs(rec, row->src0, &ue, &uo);
    }
    _mm_store_si128(l.kept + 2 * c, le);
    _mm_store_si128(l.kept + 2 * c + 1, lo);
    blendGroup<R>(dst + rec.k0, dstStride, w1, ue, uo, le, lo);
  }
  if (!edges) return;
  for (int32_t c = 0; c < groups; ++c) {
    const BilinearRecord& rec = l.records[c];
    if (rec.form <= kqwarp::kPairsSplit) continue;
    __m128i ue, uo, le, lo;
    edgePairs(rec, row, row->src1, &le, &lo);
    if (Reuse) {
      ue = _mm_load_si128(l.kept + 2 * c);
      uo = _mm_load_si128(l.kept + 2 * c + 1);
    } else {
      edgePairs(rec, row, row->src0, &ue, &uo);
    }
    _mm_store_si128(l.kept + 2 * c, le);
    _mm_store_si128(l.kept + 2 * c + 1, lo);
    blendGroup<R>(dst + rec.k0, dstStride, w1, ue, uo, le, lo);
  }
}

template <bool Reuse>
void bilinearRows(const KQWarpRow* row, uint8_t* dst, ptrdiff_t dstStride, const BilinearLayout& l,
                  int32_t groups) {
  kqWarpWithRowCount(row->rows, [&](auto r) {
    bilinearGroups<decltype(r)::value, Reuse>(row, dst, dstStride, l, groups);
  });
}

void plannedBilinearRow(uint8_t* dst, ptrdiff_t dstStride, const KQWarpRow* row) {
  const int32_t groups = (row->count + 15) / 16;
  const BilinearLayout l = bilinearLayout(row->plan, groups);
  if (*row->planReady == 0) {
    buildBilinearPlan(row, l, groups);
    *row->planReady = 1;
  }
  // In an enlargement the next call's upper row is this call's lower row,
  // and the same chain gives it the same horizontal results.
  const uint8_t* keptRow;
  std::memcpy(&keptRow, l.keptTag, sizeof keptRow);
  if (keptRow == row->src0)
    bilinearRows<true>(row, dst, dstStride, l, groups);
  else
    bilinearRows<false>(row, dst, dstStride, l, groups);
  std::memcpy(l.keptTag, &row->src1, sizeof row->src1);
}

}  // namespace

void kqWarpBilinearRow_sse41(uint8_t* dst, ptrdiff_t dstStride, const KQWarpRow* row) {
  // Steps outside the vector range: the 32-bit lane arithmetic throughout.
  if (!kqwarp::vectorStep(row->step)) {
    kqWarpBilinearRow_c(dst, dstStride, row);
    return;
  }
  if (row->codes != nullptr && row->plan != nullptr && row->planReady != nullptr &&
      row->count >= 16) {
    plannedBilinearRow(dst, dstStride, row);
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
  for (; start < count; start += 8) {
    int32_t base, phase;
    kqwarp::nextOrigin(row, start / 8, &p, &base, &phase);
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
    kqwarp::nextOrigin(row, start / 8, &p, &base, &phase);
    const uint8_t* w = kqwarp::blockWindow(s0, base, 7, width, edge);
    const __m128i idx = _mm_srli_epi16(_mm_add_epi16(_mm_set1_epi16(int16_t(phase)), off), 5);
    const __m128i v = _mm_shuffle_epi8(loadl(w), _mm_packus_epi16(idx, idx));
    storeLanes(dst + start, v, count - start < 8 ? count - start : 8);
  }
}
