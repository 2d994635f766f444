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

// Where a group's bytes come from: the 64 output pixels k0 .. k0 + 63 read
// one or two 64-byte windows of the source row from win[0], each load
// masked to the row.
struct GroupSource {
  uint64_t mask[2];  // window bytes that lie inside the row
  int32_t win[2];
  int32_t form;
  int32_t k0;
};

// Bilinear plan record: idx[p] / wts[p] are the permute indices (xa -
// win[0], xb - win[0]) and weights (32 - frac, frac) of the lanes of parity
// p, lane i at bytes 2i and 2i + 1 (8-byte aligned; the vectors are read
// unaligned).
struct Record {
  GroupSource src;
  uint8_t idx[2][kGroup];
  uint8_t wts[2][kGroup];
};

// Nearest-sample plan record: the permute index (xa - win[0]) of each pixel.
struct NearestRecord {
  GroupSource src;
  uint8_t idx[kGroup];
};
static_assert(sizeof(Record) % 8 == 0 && sizeof(NearestRecord) % 8 == 0,
              "records stay 8-byte aligned");

// A plan from its first 64-byte boundary: 64 tag bytes (the source row
// whose horizontal results a bilinear plan keeps at 0, the number of groups
// at kGroupsAt), then the groups' records, then (bilinear) those results,
// 128 bytes per group.
constexpr size_t kTagBytes = 64;
constexpr size_t kGroupsAt = 8;
constexpr size_t kKeptBytes = 2 * kGroup;

inline uint8_t* planBase(uint8_t* plan) {
  return plan + ((64 - (reinterpret_cast<uintptr_t>(plan) & 63)) & 63);
}

// True when the plan of this row has room for `groups` groups of
// bytesPerGroup.
inline bool planFits(const KQWarpRow* row, size_t bytesPerGroup, int32_t groups) {
  return 63 + kTagBytes + size_t(groups) * bytesPerGroup <= kqWarpPlanBytes(row->count);
}

// Rows the 512-bit kernels take: the tile's planned rows of at least one
// group, in the vector step range, whose plan has room.
inline bool takesPlan(const KQWarpRow* row, size_t bytesPerGroup) {
  return kqwarp::vectorStep(row->step) && row->codes != nullptr && row->plan != nullptr &&
         row->planReady != nullptr && row->count >= kGroup &&
         planFits(row, bytesPerGroup, (row->count + kGroup - 1) / kGroup);
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

// The number of groups of a planned row, building the plan on its first
// use: build(grid, groups) fills the records.
template <class Build>
int32_t planOnce(const KQWarpRow* row, const uint8_t* dst, size_t bytesPerGroup, uint8_t* base,
                 Build build) {
  int32_t groups;
  if (*row->planReady != 0) {
    std::memcpy(&groups, base + kGroupsAt, sizeof groups);
    return groups;
  }
  int32_t maxGroups = (row->count + kGroup - 1) / kGroup;
  if (planFits(row, bytesPerGroup, maxGroups + 1)) ++maxGroups;
  const GroupGrid grid = groupGrid(row, dst, maxGroups, &groups);
  // No source row's horizontal results are kept yet.
  std::memset(base, 0, kTagBytes);
  std::memcpy(base + kGroupsAt, &groups, sizeof groups);
  build(grid, groups);
  *row->planReady = 1;
  return groups;
}

// The clamped columns xa = clampCol(xi), xb = clampCol(xi + 1) and the
// phases f of the pixels of the group at k0, and where the group's bytes
// come from: windows from the lowest xa that reach the highest column read
// (xb for bilinear pairs, xa for nearest samples).
GroupSource groupColumns(const KQWarpRow* row, int32_t k0, bool pairs, int32_t* xa, int32_t* xb,
                         int32_t* f) {
  const int32_t width = row->srcWidth;
  int32_t lo = width, hi = 0;
  for (int32_t k = 0; k < kGroup; ++k) {
    int32_t xi;
    kqwarp::pixelPosition(row->codes, row->step, k0 + k, &xi, &f[k]);
    xa[k] = kqwarp::clampCol(xi, width);
    xb[k] = kqwarp::clampCol(xi + 1, width);
    lo = xa[k] < lo ? xa[k] : lo;
    const int32_t top = pairs ? xb[k] : xa[k];
    hi = top > hi ? top : hi;
  }
  GroupSource g;
  g.k0 = k0;
  g.form = hi - lo < 64 ? kOneWindow : kTwoWindows;
  g.win[0] = lo;
  g.win[1] = lo + 64;
  g.mask[0] = bytesInside(g.win[0], width);
  g.mask[1] = g.form == kTwoWindows ? bytesInside(g.win[1], width) : 0;
  return g;
}

void buildPlan(const KQWarpRow* row, Record* records, const GroupGrid& grid, int32_t groups) {
  for (int32_t c = 0; c < groups; ++c) {
    Record rec;
    int32_t xa[kGroup], xb[kGroup], f[kGroup];
    rec.src = groupColumns(row, grid.k0(c), true, xa, xb, f);
    const int32_t lo = rec.src.win[0];
    for (int32_t k = 0; k < kGroup; ++k) {
      const int32_t p = k & 1, i = k >> 1;
      rec.idx[p][2 * i] = uint8_t(xa[k] - lo);
      rec.idx[p][2 * i + 1] = uint8_t(xb[k] - lo);
      rec.wts[p][2 * i] = uint8_t(32 - f[k]);
      rec.wts[p][2 * i + 1] = uint8_t(f[k]);
    }
    std::memcpy(&records[c], &rec, sizeof rec);
  }
}

inline __m512i loadu(const void* p) { return _mm512_loadu_si512(p); }

// Halved Q5 interpolations (0..4080) of the even and odd pixels of a group.
inline void windowPairs(const Record& rec, const uint8_t* s, __m512i* even, __m512i* odd) {
  const GroupSource& g = rec.src;
  const __m512i w0 = _mm512_maskz_loadu_epi8(g.mask[0], s + g.win[0]);
  __m512i pe, po;
  if (g.form == kOneWindow) {
    pe = _mm512_permutexvar_epi8(loadu(rec.idx[0]), w0);
    po = _mm512_permutexvar_epi8(loadu(rec.idx[1]), w0);
  } else {
    const __m512i w1 = _mm512_maskz_loadu_epi8(g.mask[1], s + g.win[1]);
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
void planGroups(const KQWarpRow* row, uint8_t* dst, ptrdiff_t dstStride, const Record* records,
                uint8_t* kept, int32_t groups) {
  __m512i w1[R];
  for (int32_t r = 0; r < R; ++r) w1[r] = _mm512_set1_epi16(int16_t(row->w1[r]));
  // A tile reads only its own stretch of each source row, too short for
  // the hardware prefetchers to follow from row to row: fetch the stretch
  // of the row below the lower row (the next source row an enlargement
  // reads). A prefetch never faults, so the address may lie anywhere.
  const uintptr_t ahead =
      2 * reinterpret_cast<uintptr_t>(row->src1) - reinterpret_cast<uintptr_t>(row->src0);
  for (int32_t c = 0; c < groups; ++c, kept += kKeptBytes) {
    const Record& rec = records[c];
    _mm_prefetch(reinterpret_cast<const char*>(ahead + uintptr_t(rec.src.win[0])), _MM_HINT_T0);
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
    blendGroup<R>(dst + rec.src.k0, dstStride, w1, ue, uo, le, lo);
  }
}

template <bool Reuse>
void planRows(const KQWarpRow* row, uint8_t* dst, ptrdiff_t dstStride, const Record* records,
              uint8_t* kept, int32_t groups) {
  kqWarpWithRowCount(row->rows, [&](auto r) {
    planGroups<decltype(r)::value, Reuse>(row, dst, dstStride, records, kept, groups);
  });
}

void buildNearestPlan(const KQWarpRow* row, NearestRecord* records, const GroupGrid& grid,
                      int32_t groups) {
  for (int32_t c = 0; c < groups; ++c) {
    NearestRecord rec;
    int32_t xa[kGroup], xb[kGroup], f[kGroup];
    rec.src = groupColumns(row, grid.k0(c), false, xa, xb, f);
    for (int32_t k = 0; k < kGroup; ++k) rec.idx[k] = uint8_t(xa[k] - rec.src.win[0]);
    std::memcpy(&records[c], &rec, sizeof rec);
  }
}

}  // namespace

void kqWarpBilinearRow_avx512(uint8_t* dst, ptrdiff_t dstStride, const KQWarpRow* row) {
  constexpr size_t kBytesPerGroup = sizeof(Record) + kKeptBytes;
  if (!takesPlan(row, kBytesPerGroup)) {
    kqWarpBilinearRow_avx2(dst, dstStride, row);
    return;
  }
  uint8_t* base = planBase(row->plan);
  Record* records = reinterpret_cast<Record*>(base + kTagBytes);
  const int32_t groups =
      planOnce(row, dst, kBytesPerGroup, base,
               [&](const GroupGrid& grid, int32_t n) { buildPlan(row, records, grid, n); });
  uint8_t* kept = base + kTagBytes + size_t(groups) * sizeof(Record);
  // In an enlargement the next call's upper row is this call's lower row,
  // and the same chain gives it the same horizontal results.
  const uint8_t* keptRow;
  std::memcpy(&keptRow, base, sizeof keptRow);
  if (keptRow == row->src0)
    planRows<true>(row, dst, dstStride, records, kept, groups);
  else
    planRows<false>(row, dst, dstStride, records, kept, groups);
  std::memcpy(base, &row->src1, sizeof row->src1);
}

void kqWarpNearestRow_avx512(uint8_t* dst, const KQWarpRow* row) {
  if (!takesPlan(row, sizeof(NearestRecord))) {
    kqWarpNearestRow_sse41(dst, row);
    return;
  }
  uint8_t* base = planBase(row->plan);
  NearestRecord* records = reinterpret_cast<NearestRecord*>(base + kTagBytes);
  const int32_t groups =
      planOnce(row, dst, sizeof(NearestRecord), base,
               [&](const GroupGrid& grid, int32_t n) { buildNearestPlan(row, records, grid, n); });
  const uint8_t* s = row->src0;
  // The next source row (rows are srcWidth apart), which an enlargement
  // reads next: see the bilinear rows.
  const uintptr_t ahead = reinterpret_cast<uintptr_t>(s) + uintptr_t(row->srcWidth);
  for (int32_t c = 0; c < groups; ++c) {
    const GroupSource& g = records[c].src;
    _mm_prefetch(reinterpret_cast<const char*>(ahead + uintptr_t(g.win[0])), _MM_HINT_T0);
    const __m512i w0 = _mm512_maskz_loadu_epi8(g.mask[0], s + g.win[0]);
    __m512i v;
    if (g.form == kOneWindow) {
      v = _mm512_permutexvar_epi8(loadu(records[c].idx), w0);
    } else {
      const __m512i w1 = _mm512_maskz_loadu_epi8(g.mask[1], s + g.win[1]);
      v = _mm512_permutex2var_epi8(w0, loadu(records[c].idx), w1);
    }
    _mm512_storeu_si512(dst + g.k0, v);
  }
}
