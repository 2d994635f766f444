// warp_avx512.cpp - AVX-512 (BW, VBMI) row kernels of the warp stage.
//
// Only the tile's planned rows (rows with block codes and a plan, at least
// 64 pixels) take a 512-bit form; every other row goes to the AVX2 bilinear
// or the SSE4.1 nearest-sample kernel, which give the same bytes. Nearest
// rows are one permute per 64 pixels from the same windows as below.
//
// A planned row goes by groups of 64 pixels, the last group ending at the
// row's end (it overlaps the one before and writes the same bytes again).
// Full-register byte permutes make the windows simple: every pixel of a
// group reads the clamped columns xa = clampCol(xi) and xb = clampCol(xi +
// 1), and one 64-byte window from the group's lowest column (two for spans
// up to 128 bytes) holds them all, so vpermb / vpermt2b pick each lane's
// (xa, xb) pair with indices built once per chain; the window load is
// masked at the row's end, and the clamping at both edges lives in the
// indices. As in the AVX2 kernel, the even and odd pixels are computed in
// separate vectors so that one byte blend gives the output in order, and the
// lower source row's horizontal results are kept for the next call.
// GCC 12's vpermb intrinsic passes an undefined vector as the merge source
// of its unmasked form and then warns about it.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#include <immintrin.h>

#include <cstdint>
#include <cstring>

#include "warp/warp_dsp.h"

namespace {

constexpr int32_t kGroup = 64;

// Planned rows have steps of at most one source pixel per output pixel and
// codes taken from the float chain, whose blocks move by at most 9 columns
// (8 * D rounded at most half an ulp up, an ulp being at most one column
// below the 2^24 clamp): a group of 64 pixels touches at most 9 blocks and
// spans at most 8 * 9 + 7 + 2 = 81 < 128 columns, so two windows always do.
enum GroupForm : int32_t {
  kOneWindow = 0,   // all pairs within 64 bytes from win[0]
  kTwoWindows = 1,  // within 128 bytes: win[0] and win[1] = win[0] + 64
};

// Plan record of the 64 output pixels k0 .. k0 + 63 of a group (8-byte
// aligned; the vectors are read unaligned). idx[p] / wts[p]: permute
// indices (xa - win[0], xb - win[0]) and weights (32 - frac, frac) of the
// lanes of parity p, lane i at bytes 2i and 2i + 1.
struct Record {
  uint8_t idx[2][kGroup];
  uint8_t wts[2][kGroup];
  uint64_t mask[2];  // window bytes that lie inside the row
  int32_t win[2];
  int32_t form;
  int32_t k0;
};
static_assert(sizeof(Record) % 8 == 0, "records stay 8-byte aligned");

// Where a plan's parts lie, from its first 64-byte boundary: 64 bytes that
// name the source row whose horizontal results are kept, the records, then
// those results (128 bytes per group).
struct Layout {
  uint8_t* keptTag;
  Record* records;
  uint8_t* kept;
};

constexpr size_t kTagBytes = 64;
constexpr size_t kKeptBytes = 2 * kGroup;

inline size_t planBytesNeeded(int32_t groups) {
  return 63 + kTagBytes + size_t(groups) * (sizeof(Record) + kKeptBytes);
}

inline Layout planLayout(uint8_t* plan, int32_t groups) {
  const size_t skip = (64 - (reinterpret_cast<uintptr_t>(plan) & 63)) & 63;
  Layout l;
  l.keptTag = plan + skip;
  l.records = reinterpret_cast<Record*>(l.keptTag + kTagBytes);
  l.kept = l.keptTag + kTagBytes + size_t(groups) * sizeof(Record);
  return l;
}

inline uint64_t bytesInside(int32_t win, int32_t width) {
  const int32_t n = width - win;
  return n >= 64 ? ~uint64_t{0} : n <= 0 ? 0 : (uint64_t{1} << n) - 1;
}

// Group starts of a planned row: 0, then the pixels whose output bytes
// start a 64-byte line of the first output row (so that the stores of the
// groups between do not straddle lines when the stride keeps the rows'
// alignment), the last group ending at the row's end. Without the room for
// the extra group, plain multiples of 64.
struct GroupGrid {
  int32_t first;  // start of group 1 (0: groups at multiples of 64)
  int32_t count;  // pixels of the row
  int32_t k0(int32_t c) const {
    const int32_t k = first == 0 ? c * kGroup : c == 0 ? 0 : first + (c - 1) * kGroup;
    return k + kGroup <= count ? k : count - kGroup;
  }
};

GroupGrid groupGrid(const KQWarpRow* row, const uint8_t* dst, int32_t maxGroups, int32_t* groups) {
  GroupGrid g{int32_t((64 - (reinterpret_cast<uintptr_t>(dst) & 63)) & 63), row->count};
  if (g.first != 0 && (g.count - g.first + kGroup - 1) / kGroup + 1 <= maxGroups) {
    *groups = (g.count - g.first + kGroup - 1) / kGroup + 1;
  } else {
    g.first = 0;
    *groups = (g.count + kGroup - 1) / kGroup;
  }
  return g;
}

// The window(s) of a group whose pixels read the clamped columns lo .. hi:
// one 64-byte window from lo, or two; each load masked to the row.
void setWindows(int32_t lo, int32_t hi, int32_t width, int32_t win[2], uint64_t mask[2],
                int32_t* form) {
  *form = hi - lo < 64 ? kOneWindow : kTwoWindows;
  win[0] = lo;
  win[1] = lo + 64;
  mask[0] = bytesInside(win[0], width);
  mask[1] = *form == kTwoWindows ? bytesInside(win[1], width) : 0;
}

void buildPlan(const KQWarpRow* row, const Layout& l, const GroupGrid& grid, int32_t groups) {
  const int32_t width = row->srcWidth;
  for (int32_t c = 0; c < groups; ++c) {
    Record rec;
    std::memset(&rec, 0, sizeof rec);
    rec.k0 = grid.k0(c);
    int32_t xa[kGroup], xb[kGroup], f[kGroup];
    int32_t lo = width, hi = 0;
    for (int32_t k = 0; k < kGroup; ++k) {
      int32_t xi;
      kqwarp::pixelPosition(row->codes, row->step, rec.k0 + k, &xi, &f[k]);
      xa[k] = kqwarp::clampCol(xi, width);
      xb[k] = kqwarp::clampCol(xi + 1, width);
      lo = xa[k] < lo ? xa[k] : lo;
      hi = xb[k] > hi ? xb[k] : hi;
    }
    setWindows(lo, hi, width, rec.win, rec.mask, &rec.form);
    for (int32_t k = 0; k < kGroup; ++k) {
      const int32_t p = k & 1, i = k >> 1;
      rec.idx[p][2 * i] = uint8_t(xa[k] - lo);
      rec.idx[p][2 * i + 1] = uint8_t(xb[k] - lo);
      rec.wts[p][2 * i] = uint8_t(32 - f[k]);
      rec.wts[p][2 * i + 1] = uint8_t(f[k]);
    }
    std::memcpy(&l.records[c], &rec, sizeof rec);
  }
  // No source row's horizontal results are kept yet.
  std::memset(l.keptTag, 0, kTagBytes);
  std::memcpy(l.keptTag + sizeof(void*), &groups, sizeof groups);
}

inline __m512i loadu(const void* p) { return _mm512_loadu_si512(p); }

// Halved Q5 interpolations (0..4080) of the even and odd pixels of a group.
inline void windowPairs(const Record& rec, const uint8_t* s, __m512i* even, __m512i* odd) {
  const __m512i w0 = _mm512_maskz_loadu_epi8(rec.mask[0], s + rec.win[0]);
  __m512i pe, po;
  if (rec.form == kOneWindow) {
    pe = _mm512_permutexvar_epi8(loadu(rec.idx[0]), w0);
    po = _mm512_permutexvar_epi8(loadu(rec.idx[1]), w0);
  } else {
    const __m512i w1 = _mm512_maskz_loadu_epi8(rec.mask[1], s + rec.win[1]);
    pe = _mm512_permutex2var_epi8(w0, loadu(rec.idx[0]), w1);
    po = _mm512_permutex2var_epi8(w0, loadu(rec.idx[1]), w1);
  }
  *even = _mm512_srli_epi16(_mm512_maddubs_epi16(pe, loadu(rec.wts[0])), 1);
  *odd = _mm512_srli_epi16(_mm512_maddubs_epi16(po, loadu(rec.wts[1])), 1);
}

// Blends and stores the R output rows of a group: hu * (16 - w1) + hl * w1
// = hu * 16 + (hl - hu) * w1, exact in wrapping 16-bit lanes (0..65280),
// whose high byte is the pixel; the even pixels' bytes are shifted down and
// merged with the odd pixels' high bytes.
template <int R>
inline void blendGroup(uint8_t* out, ptrdiff_t dstStride, const __m512i* w1, __m512i ue, __m512i uo,
                       __m512i le, __m512i lo) {
  const __mmask64 oddBytes = 0xAAAAAAAAAAAAAAAAull;
  const __m512i de = _mm512_sub_epi16(le, ue), dod = _mm512_sub_epi16(lo, uo);
  const __m512i ue16 = _mm512_slli_epi16(ue, 4), uo16 = _mm512_slli_epi16(uo, 4);
  for (int32_t r = 0; r < R; ++r) {
    const __m512i ve = _mm512_add_epi16(ue16, _mm512_mullo_epi16(de, w1[r]));
    const __m512i vo = _mm512_add_epi16(uo16, _mm512_mullo_epi16(dod, w1[r]));
    _mm512_storeu_si512(out + r * dstStride,
                        _mm512_mask_blend_epi8(oddBytes, _mm512_srli_epi16(ve, 8), vo));
  }
}

// The groups of a planned row with R output rows. Reuse: kept already holds
// the upper row's results; the lower row's are always stored there.
template <int R, bool Reuse>
void planGroups(const KQWarpRow* row, uint8_t* dst, ptrdiff_t dstStride, const Layout& l,
                int32_t groups) {
  __m512i w1[R];
  for (int32_t r = 0; r < R; ++r) w1[r] = _mm512_set1_epi16(int16_t(row->w1[r]));
  // A tile reads only its own stretch of each source row, too short for
  // the hardware prefetchers to follow from row to row: fetch the stretch
  // of the row below the lower row (the next source row an enlargement
  // reads). A prefetch never faults, so the address may lie anywhere.
  const uintptr_t ahead =
      2 * reinterpret_cast<uintptr_t>(row->src1) - reinterpret_cast<uintptr_t>(row->src0);
  for (int32_t c = 0; c < groups; ++c) {
    const Record& rec = l.records[c];
    _mm_prefetch(reinterpret_cast<const char*>(ahead + uintptr_t(rec.win[0])), _MM_HINT_T0);
    uint8_t* kept = l.kept + size_t(c) * kKeptBytes;
    __m512i ue, uo, le, lo;
    windowPairs(rec, row->src1, &le, &lo);
    if (Reuse) {
      ue = loadu(kept);
      uo = loadu(kept + 64);
    } else {
      windowPairs(rec, row->src0, &ue, &uo);
    }
    _mm512_storeu_si512(kept, le);
    _mm512_storeu_si512(kept + 64, lo);
    blendGroup<R>(dst + rec.k0, dstStride, w1, ue, uo, le, lo);
  }
}

template <bool Reuse>
void planRows(const KQWarpRow* row, uint8_t* dst, ptrdiff_t dstStride, const Layout& l,
              int32_t groups) {
  kqWarpWithRowCount(row->rows, [&](auto r) {
    planGroups<decltype(r)::value, Reuse>(row, dst, dstStride, l, groups);
  });
}

}  // namespace

void kqWarpBilinearRow_avx512(uint8_t* dst, ptrdiff_t dstStride, const KQWarpRow* row) {
  if (!kqwarp::vectorStep(row->step) || row->codes == nullptr || row->plan == nullptr ||
      row->planReady == nullptr || row->count < kGroup ||
      planBytesNeeded((row->count + kGroup - 1) / kGroup) > kqWarpPlanBytes(row->count)) {
    kqWarpBilinearRow_avx2(dst, dstStride, row);
    return;
  }
  // The records start at the same place whatever their number; the tag
  // holds the kept row and the number of groups.
  const Layout l = planLayout(row->plan, 0);
  int32_t groups;
  if (*row->planReady == 0) {
    int32_t maxGroups = (row->count + kGroup - 1) / kGroup;
    if (planBytesNeeded(maxGroups + 1) <= kqWarpPlanBytes(row->count)) ++maxGroups;
    const GroupGrid grid = groupGrid(row, dst, maxGroups, &groups);
    buildPlan(row, l, grid, groups);
    *row->planReady = 1;
  } else {
    std::memcpy(&groups, l.keptTag + sizeof(void*), sizeof groups);
  }
  const Layout g = planLayout(row->plan, groups);
  // In an enlargement the next call's upper row is this call's lower row,
  // and the same chain gives it the same horizontal results.
  const uint8_t* keptRow;
  std::memcpy(&keptRow, g.keptTag, sizeof keptRow);
  if (keptRow == row->src0)
    planRows<true>(row, dst, dstStride, g, groups);
  else
    planRows<false>(row, dst, dstStride, g, groups);
  std::memcpy(g.keptTag, &row->src1, sizeof row->src1);
}

namespace {

// Nearest-sample plan record of the 64 output pixels k0 .. k0 + 63 of a
// group: the permute index (clampCol(xi) - win[0]) of each pixel into one or
// two 64-byte windows, as for the bilinear groups.
struct NearestRecord {
  uint8_t idx[kGroup];
  uint64_t mask[2];
  int32_t win[2];
  int32_t form;
  int32_t k0;
};
static_assert(sizeof(NearestRecord) % 8 == 0, "records stay 8-byte aligned");

// From the plan's first 64-byte boundary: 64 bytes holding the number of
// groups, then the records.
inline size_t nearestBytesNeeded(int32_t groups) {
  return 63 + kTagBytes + size_t(groups) * sizeof(NearestRecord);
}

inline uint8_t* nearestBase(uint8_t* plan) {
  return plan + ((64 - (reinterpret_cast<uintptr_t>(plan) & 63)) & 63);
}

void buildNearestPlan(const KQWarpRow* row, uint8_t* base, const GroupGrid& grid, int32_t groups) {
  const int32_t width = row->srcWidth;
  for (int32_t c = 0; c < groups; ++c) {
    NearestRecord rec;
    std::memset(&rec, 0, sizeof rec);
    rec.k0 = grid.k0(c);
    int32_t xa[kGroup];
    int32_t lo = width, hi = 0;
    for (int32_t k = 0; k < kGroup; ++k) {
      int32_t xi, f;
      kqwarp::pixelPosition(row->codes, row->step, rec.k0 + k, &xi, &f);
      xa[k] = kqwarp::clampCol(xi, width);
      lo = xa[k] < lo ? xa[k] : lo;
      hi = xa[k] > hi ? xa[k] : hi;
    }
    setWindows(lo, hi, width, rec.win, rec.mask, &rec.form);
    for (int32_t k = 0; k < kGroup; ++k) rec.idx[k] = uint8_t(xa[k] - lo);
    std::memcpy(base + kTagBytes + size_t(c) * sizeof rec, &rec, sizeof rec);
  }
  std::memset(base, 0, kTagBytes);
  std::memcpy(base, &groups, sizeof groups);
}

}  // namespace

void kqWarpNearestRow_avx512(uint8_t* dst, const KQWarpRow* row) {
  if (!kqwarp::vectorStep(row->step) || row->codes == nullptr || row->plan == nullptr ||
      row->planReady == nullptr || row->count < kGroup ||
      nearestBytesNeeded((row->count + kGroup - 1) / kGroup) > kqWarpPlanBytes(row->count)) {
    kqWarpNearestRow_sse41(dst, row);
    return;
  }
  uint8_t* base = nearestBase(row->plan);
  int32_t groups;
  if (*row->planReady == 0) {
    int32_t maxGroups = (row->count + kGroup - 1) / kGroup;
    if (nearestBytesNeeded(maxGroups + 1) <= kqWarpPlanBytes(row->count)) ++maxGroups;
    const GroupGrid grid = groupGrid(row, dst, maxGroups, &groups);
    buildNearestPlan(row, base, grid, groups);
    *row->planReady = 1;
  } else {
    std::memcpy(&groups, base, sizeof groups);
  }
  const NearestRecord* recs = reinterpret_cast<const NearestRecord*>(base + kTagBytes);
  const uint8_t* s = row->src0;
  // The next source row (rows are srcWidth apart), which an enlargement
  // reads next: see the bilinear rows.
  const uintptr_t ahead = reinterpret_cast<uintptr_t>(s) + uintptr_t(row->srcWidth);
  for (int32_t c = 0; c < groups; ++c) {
    const NearestRecord& rec = recs[c];
    _mm_prefetch(reinterpret_cast<const char*>(ahead + uintptr_t(rec.win[0])), _MM_HINT_T0);
    const __m512i w0 = _mm512_maskz_loadu_epi8(rec.mask[0], s + rec.win[0]);
    __m512i v;
    if (rec.form == kOneWindow) {
      v = _mm512_permutexvar_epi8(loadu(rec.idx), w0);
    } else {
      const __m512i w1 = _mm512_maskz_loadu_epi8(rec.mask[1], s + rec.win[1]);
      v = _mm512_permutex2var_epi8(w0, loadu(rec.idx), w1);
    }
    _mm512_storeu_si512(dst + rec.k0, v);
  }
}
