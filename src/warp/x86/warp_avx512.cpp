// warp_avx512.cpp - AVX-512 (BW, VBMI) row kernels of the warp stage.
//
// Only the tile's planned rows (rows with block codes and a plan, at least
// 64 pixels) take a 512-bit form, the planned rows of warp_x86.h with
// records of their own; every other row goes to the AVX2 bilinear or the
// SSE4.1 nearest-sample kernel, which give the same bytes.
//
// Full-register byte permutes make the windows simple: every pixel of a
// group of 64 reads the clamped columns xa = clampCol(xi) and xb =
// clampCol(xi + 1), and one 64-byte window from the group's lowest column
// (two for spans up to 128 bytes) holds them all, so vpermb / vpermt2b pick
// each lane's (xa, xb) pair, or a nearest sample's xa, with indices built
// once per chain; the window load is masked at the row's end, and the
// clamping at both edges lives in the indices. No group needs an edge path.
#include <immintrin.h>

#include <cstdint>

#include "runtime/x86/vec_x86.h"
#include "warp/warp_dsp.h"
#include "warp/x86/warp_x86.h"

namespace {

struct WarpAvx512 : VecAvx512 {
  static constexpr bool kPrefetch = true;
  static constexpr bool kLineGroups = true;
  __attribute__((always_inline)) static R oddBytes(R even, R odd) {
    return _mm512_mask_blend_epi8(0xAAAAAAAAAAAAAAAAull, even, odd);
  }
};

using R = WarpAvx512::R;
constexpr int32_t kGroup = WarpAvx512::kStep;

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
// masked to the row. The start of every record.
struct GroupSource {
  uint64_t mask[2];  // window bytes that lie inside the row
  int32_t win[2];
  int32_t form;
  int32_t k0;
  static constexpr bool kEdges = false;
  int32_t column() const { return win[0]; }
};

inline uint64_t bytesInside(int32_t win, int32_t width) {
  const int32_t n = width - win;
  return n >= 64 ? ~uint64_t{0} : n <= 0 ? 0 : (uint64_t{1} << n) - 1;
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

inline R loadu(const void* p) { return _mm512_loadu_si512(p); }

// The bytes each idx[i] picks out of the group's window(s) in row s.
template <int32_t kN>
__attribute__((always_inline)) inline void permute(const GroupSource& g, const uint8_t* s,
                                                   const R (&idx)[kN], R (&out)[kN]) {
  const R w0 = _mm512_maskz_loadu_epi8(g.mask[0], s + g.win[0]);
  if (g.form == kOneWindow) {
    for (int32_t i = 0; i < kN; ++i) out[i] = _mm512_permutexvar_epi8(idx[i], w0);
    return;
  }
  const R w1 = _mm512_maskz_loadu_epi8(g.mask[1], s + g.win[1]);
  for (int32_t i = 0; i < kN; ++i) out[i] = _mm512_permutex2var_epi8(w0, idx[i], w1);
}

// Bilinear groups: idx[p] / wts[p] are the permute indices (xa - win[0],
// xb - win[0]) and weights (32 - frac, frac) of the lanes of parity p, lane
// i at bytes 2i and 2i + 1 (8-byte aligned; the vectors are read
// unaligned).
struct PermutePairs {
  struct Record : GroupSource {
    uint8_t idx[2][kGroup];
    uint8_t wts[2][kGroup];
  };

  static void build(const KQWarpRow* row, int32_t k0, Record* rec) {
    int32_t xa[kGroup], xb[kGroup], f[kGroup];
    static_cast<GroupSource&>(*rec) = groupColumns(row, k0, true, xa, xb, f);
    const int32_t lo = rec->win[0];
    for (int32_t k = 0; k < kGroup; ++k) {
      const int32_t p = k & 1, i = k >> 1;
      rec->idx[p][2 * i] = uint8_t(xa[k] - lo);
      rec->idx[p][2 * i + 1] = uint8_t(xb[k] - lo);
      rec->wts[p][2 * i] = uint8_t(32 - f[k]);
      rec->wts[p][2 * i + 1] = uint8_t(f[k]);
    }
  }

  // Halved Q5 interpolations (0..4080) of the even and odd pixels of a
  // group.
  __attribute__((always_inline)) static void pairs(const Record& rec, const uint8_t* s, R* even,
                                                   R* odd) {
    const R idx[2] = {loadu(rec.idx[0]), loadu(rec.idx[1])};
    R p[2];
    permute(rec, s, idx, p);
    *even = _mm512_srli_epi16(_mm512_maddubs_epi16(p[0], loadu(rec.wts[0])), 1);
    *odd = _mm512_srli_epi16(_mm512_maddubs_epi16(p[1], loadu(rec.wts[1])), 1);
  }
};

// Nearest-sample groups: the permute index (xa - win[0]) of each pixel.
struct PermuteSamples {
  struct Record : GroupSource {
    uint8_t idx[kGroup];
  };

  static void build(const KQWarpRow* row, int32_t k0, Record* rec) {
    int32_t xa[kGroup], xb[kGroup], f[kGroup];
    static_cast<GroupSource&>(*rec) = groupColumns(row, k0, false, xa, xb, f);
    for (int32_t k = 0; k < kGroup; ++k) rec->idx[k] = uint8_t(xa[k] - rec->win[0]);
  }

  __attribute__((always_inline)) static R sample(const Record& rec, const uint8_t* s) {
    const R idx[1] = {loadu(rec.idx)};
    R v[1];
    permute(rec, s, idx, v);
    return v[0];
  }
};

using Bilinear = KqWarpBilinearX86<WarpAvx512, PermutePairs>;
using Nearest = KqWarpNearestX86<WarpAvx512, PermuteSamples>;

}  // namespace

void kqWarpBilinearRow_avx512(uint8_t* dst, ptrdiff_t dstStride, const KQWarpRow* row) {
  if (!Bilinear::planned(dst, dstStride, row)) kqWarpBilinearRow_avx2(dst, dstStride, row);
}

void kqWarpNearestRow_avx512(uint8_t* dst, const KQWarpRow* row) {
  if (!Nearest::planned(dst, row)) kqWarpNearestRow_sse41(dst, row);
}
