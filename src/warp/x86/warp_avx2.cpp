// warp_avx2.cpp - AVX2 bilinear row kernel of the warp stage.
//
// Rows without a plan: the SSE4.1 arithmetic (see warp_dsp.h and
// warp_sse41.cpp), two blocks of 8 pixels per step, block j in the low
// 128-bit half and block j + 1 in the high half, since pshufb and maddubs
// work within halves. Each block keeps its own origin (base, f0), taken from
// the float position chain p(j), p(j + 1) = p(j) + 8*D exactly as the other
// versions do, or from the tile's codes of that chain. A window that leaves
// the row is read from a clamped copy, and a last lone block uses the
// 8-pixel SSE form, so every block of a vector-range step is done in vector
// form.
//
// Rows with codes and a plan (the tile's rows of one chain, at least 32
// pixels) go by groups of 32 pixels, the last group ending at the row's end
// (it overlaps the one before and writes the same bytes there again). The
// plan, built once per chain, holds each group's windows, shuffles and
// weights; the even and odd pixels of a group are computed in separate
// vectors, so that the output bytes come out of one byte blend; and the
// lower source row's horizontal results are kept for the next call, which
// in an enlargement reads that row as its upper row.
#include <immintrin.h>

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

// Plan record of the 32 output pixels k0 .. k0 + 31 of a group. The even
// pixels are computed in one vector and the odd ones in another, the first
// 16 pixels in the low halves and the last 16 in the high halves. Each half
// of each vector shuffles its lanes' pairs out of a 16-byte window
// (kqwarp::pairWindows); in an enlargement by about 1.1 or more one window
// serves both parities.
struct alignas(32) PlanRecord {
  uint8_t sel[2][32];  // [parity]: half 0 in bytes 0..15, half 1 in 16..31
  uint8_t wts[2][32];
  int32_t win[2][2];  // [parity][half] window starts
  int32_t form;       // KQWarpPairForm, the same for both halves
  int32_t k0;
};
static_assert(sizeof(PlanRecord) <= 2 * kKqWarpPlanRecord, "plan record size");

// Where a plan's parts lie: the records from the first 32-byte boundary of
// the plan, then 32 bytes that name the source row whose horizontal results
// are kept, then those results (64 bytes per record). kqWarpPlanBytes gives
// 224 bytes per 32 pixels and 288 more, which leaves room for this.
struct PlanLayout {
  PlanRecord* records;
  uint8_t* keptTag;
  __m256i* kept;
};

inline PlanLayout planLayout(uint8_t* plan, int32_t groups) {
  const size_t skip = (32 - (reinterpret_cast<uintptr_t>(plan) & 31)) & 31;
  uint8_t* base = plan + skip;
  PlanLayout l;
  l.records = reinterpret_cast<PlanRecord*>(base);
  l.keptTag = base + size_t(groups) * sizeof(PlanRecord);
  l.kept = reinterpret_cast<__m256i*>(l.keptTag + 32);
  return l;
}

void buildPlan(const KQWarpRow* row, const PlanLayout& l, int32_t groups) {
  const int32_t width = row->srcWidth;
  for (int32_t c = 0; c < groups; ++c) {
    PlanRecord rec;
    std::memset(&rec, 0, sizeof rec);
    rec.k0 = c == groups - 1 ? row->count - 32 : 32 * c;
    rec.form = kqwarp::kPairsNone;
    for (int32_t form = kqwarp::kPairsShared; form < kqwarp::kPairsNone; ++form) {
      int32_t win[2][2];
      uint8_t sel[2][2][16], wts[2][2][16];  // [half][parity]
      if (!kqwarp::pairWindows(row->codes, row->step, rec.k0, width, form, win[0], sel[0],
                               wts[0]) ||
          !kqwarp::pairWindows(row->codes, row->step, rec.k0 + 16, width, form, win[1], sel[1],
                               wts[1]))
        continue;
      for (int32_t p = 0; p < 2; ++p)
        for (int32_t h = 0; h < 2; ++h) {
          std::memcpy(rec.sel[p] + 16 * h, sel[h][p], 16);
          std::memcpy(rec.wts[p] + 16 * h, wts[h][p], 16);
          rec.win[p][h] = win[h][p];
        }
      rec.form = form;
      break;
    }
    new (&l.records[c]) PlanRecord(rec);
  }
  // No source row's horizontal results are kept yet.
  std::memset(l.keptTag, 0, 32);
}

inline __m256i window32(const uint8_t* s, int32_t b0, int32_t b1) {
  return _mm256_inserti128_si256(
      _mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(s + b0))),
      _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + b1)), 1);
}

// Halved Q5 interpolations of the 16 lanes whose pairs sel picks out of w.
inline __m256i pairPass(__m256i w, const uint8_t* sel, const uint8_t* wts) {
  return _mm256_srli_epi16(
      _mm256_maddubs_epi16(
          _mm256_shuffle_epi8(w, _mm256_load_si256(reinterpret_cast<const __m256i*>(sel))),
          _mm256_load_si256(reinterpret_cast<const __m256i*>(wts))),
      1);
}

// Even and odd horizontal results of a record in the shared or split form.
inline void fastPairs(const PlanRecord& rec, const uint8_t* s, __m256i* even, __m256i* odd) {
  const __m256i we = window32(s, rec.win[0][0], rec.win[0][1]);
  const __m256i wo =
      rec.form == kqwarp::kPairsShared ? we : window32(s, rec.win[1][0], rec.win[1][1]);
  *even = pairPass(we, rec.sel[0], rec.wts[0]);
  *odd = pairPass(wo, rec.sel[1], rec.wts[1]);
}

// The same for the copy and no-window forms, which only groups at the plane
// edges or steps near 1 take: from copies of the clamped columns, or lane by
// lane in the 32-bit arithmetic.
__attribute__((noinline)) void edgePairs(const PlanRecord& rec, const KQWarpRow* row,
                                         const uint8_t* s, __m256i* even, __m256i* odd) {
  const int32_t width = row->srcWidth;
  if (rec.form == kqwarp::kPairsCopy) {
    alignas(32) uint8_t buf[2][32];
    for (int32_t p = 0; p < 2; ++p)
      for (int32_t h = 0; h < 2; ++h)
        for (int32_t i = 0; i < 16; ++i)
          buf[p][16 * h + i] = s[kqwarp::clampCol(rec.win[p][h] + i, width)];
    *even = pairPass(_mm256_load_si256(reinterpret_cast<const __m256i*>(buf[0])), rec.sel[0],
                     rec.wts[0]);
    *odd = pairPass(_mm256_load_si256(reinterpret_cast<const __m256i*>(buf[1])), rec.sel[1],
                    rec.wts[1]);
    return;
  }
  alignas(32) uint16_t h[2][16];
  for (int32_t half = 0; half < 2; ++half)
    for (int32_t i = 0; i < 8; ++i)
      for (int32_t p = 0; p < 2; ++p)
        h[p][8 * half + i] = kqwarp::pixelHorizontal(s, row->codes, row->step,
                                                     rec.k0 + 16 * half + 2 * i + p, width);
  *even = _mm256_load_si256(reinterpret_cast<const __m256i*>(h[0]));
  *odd = _mm256_load_si256(reinterpret_cast<const __m256i*>(h[1]));
}

// Blends and stores the R output rows of a group from its upper (ue, uo)
// and lower (le, lo) horizontal results. Each output row's 32 bytes are the
// even pixels' sums shifted down to the low bytes and the odd pixels' left
// in the high bytes: hu * (16 - w1) + hl * w1 = hu * 16 + (hl - hu) * w1,
// whose true value (0..65280) the wrapping 16-bit arithmetic gives exactly,
// so that its high byte is the pixel.
template <int R>
inline void blendGroup(uint8_t* out, ptrdiff_t dstStride, const __m256i* w1, __m256i ue, __m256i uo,
                       __m256i le, __m256i lo) {
  const __m256i oddBytes = _mm256_set1_epi16(int16_t(0xFF00));
  const __m256i de = _mm256_sub_epi16(le, ue), dod = _mm256_sub_epi16(lo, uo);
  const __m256i ue16 = _mm256_slli_epi16(ue, 4), uo16 = _mm256_slli_epi16(uo, 4);
  for (int32_t r = 0; r < R; ++r) {
    const __m256i ve = _mm256_add_epi16(ue16, _mm256_mullo_epi16(de, w1[r]));
    const __m256i vo = _mm256_add_epi16(uo16, _mm256_mullo_epi16(dod, w1[r]));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + r * dstStride),
                        _mm256_blendv_epi8(_mm256_srli_epi16(ve, 8), vo, oddBytes));
  }
}

// The groups of a planned row with R output rows. Reuse: kept already holds
// the upper row's results; the lower row's are always stored there.
template <int R, bool Reuse>
void planGroups(const KQWarpRow* row, uint8_t* dst, ptrdiff_t dstStride, const PlanLayout& l,
                int32_t groups) {
  const uint8_t* s0 = row->src0;
  const uint8_t* s1 = row->src1;
  __m256i w1[R];
  for (int32_t r = 0; r < R; ++r) w1[r] = _mm256_set1_epi16(int16_t(row->w1[r]));
  // A tile reads only its own stretch of each source row, too short for
  // the hardware prefetchers to follow from row to row: fetch the stretch
  // of the row below the lower row (the next source row an enlargement
  // reads). A prefetch never faults, so the address may lie anywhere.
  const uintptr_t ahead = 2 * reinterpret_cast<uintptr_t>(s1) - reinterpret_cast<uintptr_t>(s0);
  // Groups read straight from the source rows first, then the few others,
  // so that the main loop makes no calls and keeps its values in registers.
  bool edges = false;
  for (int32_t c = 0; c < groups; ++c) {
    const PlanRecord& rec = l.records[c];
    _mm_prefetch(reinterpret_cast<const char*>(ahead + uintptr_t(rec.win[0][0])), _MM_HINT_T0);
    if (rec.form > kqwarp::kPairsSplit) {
      edges = true;
      continue;
    }
    __m256i ue, uo, le, lo;
    fastPairs(rec, s1, &le, &lo);
    if (Reuse) {
      ue = _mm256_load_si256(l.kept + 2 * c);
      uo = _mm256_load_si256(l.kept + 2 * c + 1);
    } else {
      fastPairs(rec, s0, &ue, &uo);
    }
    _mm256_store_si256(l.kept + 2 * c, le);
    _mm256_store_si256(l.kept + 2 * c + 1, lo);
    blendGroup<R>(dst + rec.k0, dstStride, w1, ue, uo, le, lo);
  }
  if (!edges) return;
  for (int32_t c = 0; c < groups; ++c) {
    const PlanRecord& rec = l.records[c];
    if (rec.form <= kqwarp::kPairsSplit) continue;
    __m256i ue, uo, le, lo;
    edgePairs(rec, row, s1, &le, &lo);
    if (Reuse) {
      ue = _mm256_load_si256(l.kept + 2 * c);
      uo = _mm256_load_si256(l.kept + 2 * c + 1);
    } else {
      edgePairs(rec, row, s0, &ue, &uo);
    }
    _mm256_store_si256(l.kept + 2 * c, le);
    _mm256_store_si256(l.kept + 2 * c + 1, lo);
    blendGroup<R>(dst + rec.k0, dstStride, w1, ue, uo, le, lo);
  }
}

template <bool Reuse>
void planRows(const KQWarpRow* row, uint8_t* dst, ptrdiff_t dstStride, const PlanLayout& l,
              int32_t groups) {
  kqWarpWithRowCount(row->rows, [&](auto r) {
    planGroups<decltype(r)::value, Reuse>(row, dst, dstStride, l, groups);
  });
}

void plannedRow(uint8_t* dst, ptrdiff_t dstStride, const KQWarpRow* row) {
  const int32_t groups = (row->count + 31) / 32;
  const PlanLayout l = planLayout(row->plan, groups);
  if (*row->planReady == 0) {
    buildPlan(row, l, groups);
    *row->planReady = 1;
  }
  // In an enlargement the next call's upper row is this call's lower row,
  // and the same chain gives it the same horizontal results.
  const uint8_t* keptRow;
  std::memcpy(&keptRow, l.keptTag, sizeof keptRow);
  if (keptRow == row->src0)
    planRows<true>(row, dst, dstStride, l, groups);
  else
    planRows<false>(row, dst, dstStride, l, groups);
  std::memcpy(l.keptTag, &row->src1, sizeof row->src1);
}

}  // namespace

void kqWarpBilinearRow_avx2(uint8_t* dst, ptrdiff_t dstStride, const KQWarpRow* row) {
  // Steps outside the vector range: the 32-bit lane arithmetic throughout.
  if (!kqwarp::vectorStep(row->step)) {
    kqWarpBilinearRow_c(dst, dstStride, row);
    return;
  }
  if (row->codes != nullptr && row->plan != nullptr && row->planReady != nullptr &&
      row->count >= 32) {
    plannedRow(dst, dstStride, row);
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
  for (; start + 8 < count; start += 16) {
    int32_t b0, f0, b1, f1;
    kqwarp::nextOrigin(row, start / 8, &p, &b0, &f0);
    kqwarp::nextOrigin(row, start / 8 + 1, &p, &b1, &f1);
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
    kqwarp::nextOrigin(row, start / 8, &p, &b0, &f0);
    block8(k, row, dst + start, dstStride, kqwarp::blockWindow(s0, b0, 8, width, edge[0]),
           kqwarp::blockWindow(s1, b0, 8, width, edge[1]), f0, count - start);
  }
}
