// warp_x86.h - the x86 row kernels of the warp stage, written once over a
// vector type: the planned rows (plan layout, group loop, edge groups, the
// vertical blend) and the rows without a plan.
//
// warp_sse41.cpp, warp_avx2.cpp and warp_avx512.cpp instantiate these over
// the traits type W of their level: the vector traits of
// runtime/x86/vec_x86.h plus the warp's hooks below, all in an anonymous
// namespace, so that every instantiation stays inside the translation unit
// built with the matching target flags. W adds:
//   kPrefetch    fetch the next source row's stretch of every planned group
//   kLineGroups  start planned groups at the 64-byte lines of the output row
//   oddBytes(e, o)  bytes 2i of e and bytes 2i + 1 of o
// and, for the pshufb records and the rows without a plan:
//   fromLanes(f)    the register whose 128-bit lane h is the __m128i f(h)
//   narrowWords(v)  the 16-bit lanes of v (0..255) as bytes, in order
//
// Planned rows (the tile's rows of one chain, with block codes and a plan,
// in the vector step range) go by groups of G = W::kStep output pixels, the
// last group ending at the row's end (it overlaps the one before and writes
// the same bytes there again). The plan, built once per chain, holds each
// group's record: where its source bytes lie and how its lanes pick them
// out. A bilinear group computes its even and odd pixels in separate
// vectors, so that the output bytes come out of one byte blend, and keeps
// the lower source row's horizontal results for the next call, which in an
// enlargement reads that row as its upper row. How a group finds its bytes
// is the records' part: pshufb out of 16-byte windows, one per 128-bit lane
// (KqWarpPairGroups, KqWarpSampleGroups: SSE4.1 and AVX2), or the level's
// own (AVX-512 permutes).
#pragma once

#include <smmintrin.h>
#include <xmmintrin.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>

#include "warp/warp_dsp.h"

// The lane offsets (l * S) >> 6 of a block, l = 0..7, as 16-bit lanes.
static inline __m128i kqWarpLaneOffsets(int32_t step) {
  return _mm_setr_epi16(0, int16_t(step >> 6), int16_t((2 * step) >> 6), int16_t((3 * step) >> 6),
                        int16_t((4 * step) >> 6), int16_t((5 * step) >> 6),
                        int16_t((6 * step) >> 6), int16_t((7 * step) >> 6));
}

// (s[i], s[i + 1]) byte pairs for i = 0..7.
static inline __m128i kqWarpBytePairs(const uint8_t* s) {
  const __m128i a = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(s));
  const __m128i b = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(s + 1));
  return _mm_unpacklo_epi8(a, b);
}

// Stores the first n bytes of v (all of them at n = 8 or 16 in one store).
static inline void kqWarpStoreBytes(uint8_t* dst, __m128i v, int32_t n) {
  if (n == 8) {
    _mm_storel_epi64(reinterpret_cast<__m128i*>(dst), v);
  } else if (n == 16) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst), v);
  } else {
    alignas(16) uint8_t tmp[16];
    _mm_store_si128(reinterpret_cast<__m128i*>(tmp), v);
    std::memcpy(dst, tmp, size_t(n));
  }
}

// A planned row's plan, from the first 64-byte boundary of row->plan: 64
// header bytes (at 0 the source row whose horizontal results are kept, at
// kGroupsAt the number of groups), then kKept vectors per group (the kept
// results), then the groups' records. Record is trivially copyable and has
// k0 (the group's first pixel), column() (a source column it reads),
// kEdges and, with kEdges, direct() (false for the groups the edge path
// takes).
template <class W, class Record, int32_t kKept>
struct KqWarpPlan {
  using R = typename W::R;
  static constexpr int32_t kGroup = W::kStep;
  static constexpr size_t kHeader = 64;
  static constexpr size_t kGroupsAt = 8;
  static constexpr size_t kBytesPerGroup = sizeof(Record) + size_t(kKept) * sizeof(R);
  static_assert(sizeof(R) % alignof(Record) == 0, "records stay aligned after the kept vectors");

  uint8_t* header;
  R* kept;
  Record* records;
  int32_t groups;

  // True when the plan of this row has room for `groups` groups.
  static bool fits(const KQWarpRow* row, int32_t groups) {
    return 63 + kHeader + size_t(groups) * kBytesPerGroup <= kqWarpPlanBytes(row->count);
  }

  // Rows that take a plan: the tile's rows with codes and a plan, in the
  // vector step range, of at least one group, whose plan has room.
  static bool takes(const KQWarpRow* row) {
    return kqwarp::vectorStep(row->step) && row->codes != nullptr && row->plan != nullptr &&
           row->planReady != nullptr && row->count >= kGroup &&
           fits(row, (row->count + kGroup - 1) / kGroup);
  }

  // The plan of a row that takes one (dst: the row's first output pixel),
  // built on first use: build(row, k0, &record) fills the record of the
  // group at k0. Groups start at multiples of G. With W::kLineGroups and
  // room for one more group they start at 0 and then at the pixels whose
  // output bytes start a 64-byte line of that first output row, so that the
  // stores of the groups between do not straddle lines when the stride keeps
  // the rows' alignment. Either way the last one ends at the row's end.
  template <class Build>
  static KqWarpPlan of(const KQWarpRow* row, const uint8_t* dst, Build build) {
    KqWarpPlan p;
    p.header = row->plan + ((64 - (reinterpret_cast<uintptr_t>(row->plan) & 63)) & 63);
    if (*row->planReady != 0) {
      std::memcpy(&p.groups, p.header + kGroupsAt, sizeof p.groups);
      p.locate();
      return p;
    }
    const int32_t count = row->count;
    int32_t first = 0;
    p.groups = (count + kGroup - 1) / kGroup;
    if constexpr (W::kLineGroups) {
      const int32_t lead = int32_t((64 - (reinterpret_cast<uintptr_t>(dst) & 63)) & 63);
      const int32_t lined = (count - lead + kGroup - 1) / kGroup + 1;
      if (lead != 0 && (lined <= p.groups || fits(row, lined))) {
        first = lead;
        p.groups = lined;
      }
    }
    // No source row's horizontal results are kept yet.
    std::memset(p.header, 0, kHeader);
    std::memcpy(p.header + kGroupsAt, &p.groups, sizeof p.groups);
    p.locate();
    for (int32_t c = 0; c < p.groups; ++c) {
      int32_t k0 = first == 0 ? c * kGroup : c == 0 ? 0 : first + (c - 1) * kGroup;
      if (k0 + kGroup > count) k0 = count - kGroup;
      Record rec;
      build(row, k0, &rec);
      new (&p.records[c]) Record(rec);
    }
    *row->planReady = 1;
    return p;
  }

  // Calls fast(rec, kept) for every group whose record allows the main path
  // (kept: the group's kKept vectors), then edge(rec, kept) for the others
  // (groups at the plane's edges, rare; records without kEdges have none,
  // and edge may be nullptr), so that the main loop makes no calls and keeps
  // its values in registers.
  // With W::kPrefetch, each group first fetches its stretch of the source
  // row at `ahead`, the next one an enlargement reads: a tile reads too
  // little of each row for the hardware prefetchers to follow from row to
  // row. A prefetch never faults, so the address may lie anywhere.
  template <class Fast, class Edge>
  void forGroups(uintptr_t ahead, Fast fast, Edge edge) const {
    const Record* const end = records + groups;
    bool edges = false;
    R* k = kept;
    for (const Record* rec = records; rec != end; ++rec, k += kKept) {
      if constexpr (W::kPrefetch)
        _mm_prefetch(reinterpret_cast<const char*>(ahead + uintptr_t(rec->column())), _MM_HINT_T0);
      if constexpr (Record::kEdges) {
        if (!rec->direct()) {
          edges = true;
          continue;
        }
      }
      fast(*rec, k);
    }
    if constexpr (Record::kEdges) {
      if (!edges) return;
      k = kept;
      for (const Record* rec = records; rec != end; ++rec, k += kKept)
        if (!rec->direct()) edge(*rec, k);
    }
  }

  void locate() {
    kept = reinterpret_cast<R*>(header + kHeader);
    records = reinterpret_cast<Record*>(header + kHeader + size_t(groups) * kKept * sizeof(R));
  }
};

// Bilinear groups of the pshufb levels: the G pixels k0 .. k0 + G - 1 are
// G / 16 runs of 16, one per 128-bit lane, and each run's even and odd
// pixels pick their pairs (s[xi], s[xi + 1]) out of a 16-byte window
// (kqwarp::pairWindows); in an enlargement by about 1.1 or more one window
// serves both parities. Groups in the copy and no-window forms (the plane's
// edges, steps near 1) take the edge path.
template <class W>
struct KqWarpPairGroups {
  using R = typename W::R;
  static constexpr int32_t kLanes = W::kStep / 16;

  struct alignas(W::kStep) Record {
    uint8_t sel[2][W::kStep];  // [parity]: lane h's shuffle bytes at 16h .. 16h + 15
    uint8_t wts[2][W::kStep];  // the weight bytes (32 - frac, frac), the same way
    int32_t win[2][kLanes];    // [parity][lane] window starts
    int32_t form;              // KQWarpPairForm, the same for every lane
    int32_t k0;
    static constexpr bool kEdges = true;
    bool direct() const { return form <= kqwarp::kPairsSplit; }
    int32_t column() const { return win[0][0]; }
  };

  static void build(const KQWarpRow* row, int32_t k0, Record* rec) {
    std::memset(rec, 0, sizeof *rec);
    rec->k0 = k0;
    rec->form = kqwarp::kPairsNone;
    for (int32_t form = kqwarp::kPairsShared; form < kqwarp::kPairsNone; ++form) {
      int32_t win[kLanes][2];
      uint8_t sel[kLanes][2][16], wts[kLanes][2][16];  // [lane][parity]
      bool found = true;
      for (int32_t h = 0; h < kLanes && found; ++h)
        found = kqwarp::pairWindows(row->codes, row->step, k0 + 16 * h, row->srcWidth, form, win[h],
                                    sel[h], wts[h]);
      if (!found) continue;
      for (int32_t p = 0; p < 2; ++p)
        for (int32_t h = 0; h < kLanes; ++h) {
          std::memcpy(rec->sel[p] + 16 * h, sel[h][p], 16);
          std::memcpy(rec->wts[p] + 16 * h, wts[h][p], 16);
          rec->win[p][h] = win[h][p];
        }
      rec->form = form;
      return;
    }
  }

  // Halved Q5 interpolations (0..4080) of the lanes whose pairs sel picks
  // out of w.
  __attribute__((always_inline)) static R pass(R w, const uint8_t* sel, const uint8_t* wts) {
    return W::template srli16<1>(W::maddubs(W::shuffle8(w, W::loadA(sel)), W::loadA(wts)));
  }

  // The 16-byte windows at s + at[h], lane by lane.
  __attribute__((always_inline)) static R windows(const uint8_t* s, const int32_t* at) {
    return W::fromLanes(
        [&](int32_t h) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + at[h])); });
  }

  // Even and odd horizontal results of a group from source row s, straight
  // from the row (shared and split forms).
  __attribute__((always_inline)) static void pairs(const Record& rec, const uint8_t* s, R* even,
                                                   R* odd) {
    const R we = windows(s, rec.win[0]);
    const R wo = rec.form == kqwarp::kPairsShared ? we : windows(s, rec.win[1]);
    *even = pass(we, rec.sel[0], rec.wts[0]);
    *odd = pass(wo, rec.sel[1], rec.wts[1]);
  }

  // The same for the copy and no-window forms: from copies of the clamped
  // columns, or lane by lane in the 32-bit arithmetic.
  __attribute__((noinline)) static void edgePairs(const Record& rec, const KQWarpRow* row,
                                                  const uint8_t* s, R* even, R* odd) {
    const int32_t width = row->srcWidth;
    if (rec.form == kqwarp::kPairsCopy) {
      alignas(W::kStep) uint8_t buf[2][W::kStep];
      for (int32_t p = 0; p < 2; ++p)
        for (int32_t h = 0; h < kLanes; ++h)
          for (int32_t i = 0; i < 16; ++i)
            buf[p][16 * h + i] = s[kqwarp::clampCol(rec.win[p][h] + i, width)];
      *even = pass(W::loadA(buf[0]), rec.sel[0], rec.wts[0]);
      *odd = pass(W::loadA(buf[1]), rec.sel[1], rec.wts[1]);
      return;
    }
    alignas(W::kStep) uint16_t h[2][W::kStep / 2];
    for (int32_t lane = 0; lane < kLanes; ++lane)
      for (int32_t i = 0; i < 8; ++i)
        for (int32_t p = 0; p < 2; ++p)
          h[p][8 * lane + i] = kqwarp::pixelHorizontal(s, row->codes, row->step,
                                                       rec.k0 + 16 * lane + 2 * i + p, width);
    *even = W::loadA(h[0]);
    *odd = W::loadA(h[1]);
  }
};

// Nearest-sample groups of the pshufb levels: each 128-bit lane shuffles
// the clamped columns clampCol(xi) of its run of 16 pixels out of one
// 16-byte window. With the clamping in the shuffle bytes, a row of 16 bytes
// or more always has such a window inside it (the lowest column, moved left
// when the window would end past the row) unless the columns spread over
// more than 16 bytes. The edge path takes narrower rows (from a copy of the
// clamped columns) and wider spreads (pixel by pixel). The forms are those
// of KQWarpPairForm: shared (from the row), copy, none.
template <class W>
struct KqWarpSampleGroups {
  using R = typename W::R;
  static constexpr int32_t kLanes = W::kStep / 16;

  struct alignas(W::kStep) Record {
    uint8_t sel[W::kStep];  // lane h: the window offsets of pixels k0 + 16h ..
    int32_t win[kLanes];    // window starts
    int32_t form;           // the worst form of the lanes
    int32_t k0;
    static constexpr bool kEdges = true;
    bool direct() const { return form == kqwarp::kPairsShared; }
    int32_t column() const { return win[0]; }
  };

  static void build(const KQWarpRow* row, int32_t k0, Record* rec) {
    const int32_t width = row->srcWidth;
    std::memset(rec, 0, sizeof *rec);
    rec->k0 = k0;
    rec->form = kqwarp::kPairsShared;
    for (int32_t h = 0; h < kLanes; ++h) {
      int32_t col[16], lo = width, hi = 0;
      for (int32_t i = 0; i < 16; ++i) {
        int32_t xi, frac;
        kqwarp::pixelPosition(row->codes, row->step, k0 + 16 * h + i, &xi, &frac);
        col[i] = kqwarp::clampCol(xi, width);
        lo = col[i] < lo ? col[i] : lo;
        hi = col[i] > hi ? col[i] : hi;
      }
      int32_t form = kqwarp::kPairsNone, w = lo;
      if (hi - lo <= 15) {
        form = width >= 16 ? kqwarp::kPairsShared : kqwarp::kPairsCopy;
        if (width >= 16 && lo > width - 16) w = width - 16;
        for (int32_t i = 0; i < 16; ++i) rec->sel[16 * h + i] = static_cast<uint8_t>(col[i] - w);
      }
      rec->win[h] = w;
      rec->form = form > rec->form ? form : rec->form;
    }
  }

  // The G output bytes of a group in the shared form.
  __attribute__((always_inline)) static R sample(const Record& rec, const uint8_t* s) {
    const R w = W::fromLanes([&](int32_t h) {
      return _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + rec.win[h]));
    });
    return W::shuffle8(w, W::loadA(rec.sel));
  }

  // The G output bytes of a group in the copy or no-window form, at out.
  __attribute__((noinline)) static void edgeSample(const Record& rec, const KQWarpRow* row,
                                                   uint8_t* out) {
    const uint8_t* s = row->src0;
    const int32_t width = row->srcWidth;
    if (rec.form == kqwarp::kPairsCopy) {
      alignas(W::kStep) uint8_t buf[W::kStep];
      for (int32_t h = 0; h < kLanes; ++h)
        for (int32_t i = 0; i < 16; ++i)
          buf[16 * h + i] = s[kqwarp::clampCol(rec.win[h] + i, width)];
      W::store(out, W::shuffle8(W::loadA(buf), W::loadA(rec.sel)));
      return;
    }
    for (int32_t k = 0; k < W::kStep; ++k) {
      int32_t xi, frac;
      kqwarp::pixelPosition(row->codes, row->step, rec.k0 + k, &xi, &frac);
      out[k] = s[kqwarp::clampCol(xi, width)];
    }
  }
};

// Bilinear rows: planned rows by the groups of Pairs' records, and rows
// without a plan by blocks of 8 pixels.
template <class W, class Pairs>
struct KqWarpBilinearX86 {
  using R = typename W::R;
  using Plan = KqWarpPlan<W, typename Pairs::Record, 2>;

  // Blends and stores the kRows output rows of a group from its upper (ue,
  // uo) and lower (le, lo) horizontal results: hu * (16 - w1) + hl * w1 =
  // hu * 16 + (hl - hu) * w1, whose true value (0..65280) the wrapping
  // 16-bit arithmetic gives exactly, so that its high byte is the pixel; the
  // even pixels' sums are shifted down to the low bytes, the odd pixels'
  // high bytes are kept.
  template <int32_t kRows>
  __attribute__((always_inline)) static void blend(uint8_t* out, ptrdiff_t dstStride, const R* w1,
                                                   R ue, R uo, R le, R lo) {
    const R de = W::sub16(le, ue), dod = W::sub16(lo, uo);
    const R ue16 = W::template slli16<4>(ue), uo16 = W::template slli16<4>(uo);
    for (int32_t r = 0; r < kRows; ++r) {
      const R ve = W::add16(ue16, W::mullo16(de, w1[r]));
      const R vo = W::add16(uo16, W::mullo16(dod, w1[r]));
      W::store(out + r * dstStride, W::oddBytes(W::template srli16<8>(ve), vo));
    }
  }

  // The groups of a planned row with kRows output rows. kReuse: the kept
  // results are the upper row's; the lower row's are always stored there.
  template <int32_t kRows, bool kReuse>
  static void groups(const KQWarpRow* row, uint8_t* dst, ptrdiff_t dstStride, const Plan& plan) {
    const uint8_t* s0 = row->src0;
    const uint8_t* s1 = row->src1;
    R w1[kRows];
    for (int32_t r = 0; r < kRows; ++r) w1[r] = W::set16(int16_t(row->w1[r]));
    // horizontal(s, &even, &odd) gives the group's results from row s.
    const auto group = [&](const auto& rec, R* kept, auto horizontal) {
      R ue, uo, le, lo;
      horizontal(s1, &le, &lo);
      if (kReuse) {
        ue = W::loadA(kept);
        uo = W::loadA(kept + 1);
      } else {
        horizontal(s0, &ue, &uo);
      }
      W::storeA(kept, le);
      W::storeA(kept + 1, lo);
      blend<kRows>(dst + rec.k0, dstStride, w1, ue, uo, le, lo);
    };
    const auto fast = [&](const auto& rec, R* kept) {
      group(rec, kept, [&](const uint8_t* s, R* e, R* o) { Pairs::pairs(rec, s, e, o); });
    };
    const uintptr_t ahead = 2 * reinterpret_cast<uintptr_t>(s1) - reinterpret_cast<uintptr_t>(s0);
    if constexpr (Pairs::Record::kEdges) {
      plan.forGroups(ahead, fast, [&](const auto& rec, R* kept) {
        group(rec, kept,
              [&](const uint8_t* s, R* e, R* o) { Pairs::edgePairs(rec, row, s, e, o); });
      });
    } else {
      plan.forGroups(ahead, fast, nullptr);
    }
  }

  // A row that takes a plan; false for any other.
  static bool planned(uint8_t* dst, ptrdiff_t dstStride, const KQWarpRow* row) {
    if (!Plan::takes(row)) return false;
    const Plan plan = Plan::of(row, dst, Pairs::build);
    // In an enlargement the next call's upper row is this call's lower row,
    // and the same chain gives it the same horizontal results.
    const uint8_t* keptRow;
    std::memcpy(&keptRow, plan.header, sizeof keptRow);
    const bool reuse = keptRow == row->src0;
    kqWarpWithRowCount(row->rows, [&](auto rows) {
      if (reuse)
        groups<decltype(rows)::value, true>(row, dst, dstStride, plan);
      else
        groups<decltype(rows)::value, false>(row, dst, dstStride, plan);
    });
    std::memcpy(plan.header, &row->src1, sizeof row->src1);
    return true;
  }

  // Rows without a plan, kLanes blocks of 8 pixels per step, block b in
  // 128-bit lane b (pshufb and maddubs work within lanes), each with its own
  // origin (base, f0) from kqwarp::nextOrigin. Per block, in 16-bit lanes:
  //
  //   q     = f0 + off[l]                 off[l] = (l * S) >> 6, <= 224
  //   pairs = unpacklo(src[base..], src[base+1..])   bytes (s[j], s[j+1])
  //   LR    = pshufb(pairs, 2*idx | (2*idx+1) << 8)   idx = q >> 5
  //   h     = maddubs(LR, (32 - f) | f << 8) >> 1      f = q & 31, <= 4080
  //   r     = (hUp * (16 - w1) + hLo * w1) >> 8         <= 65280 before >> 8
  //   out   = r   (the normalisation is the identity on 0..255)
  //
  // maddubs cannot saturate: both weights are <= 32 and the sum <= 8160. A
  // window that leaves the row is read from a clamped copy, so every block
  // of a vector-range step takes this form; other steps go through the
  // scalar kernel. The last step repeats its last block in lanes past the
  // row's end and stores only the row's pixels.
  static void blocks(uint8_t* dst, ptrdiff_t dstStride, const KQWarpRow* row) {
    if (!kqwarp::vectorStep(row->step)) {
      kqWarpBilinearRow_c(dst, dstStride, row);
      return;
    }
    constexpr int32_t kLanes = W::kStep / 16, kPixels = 8 * kLanes;
    const int32_t count = row->count, rows = row->rows, width = row->srcWidth;
    const __m128i off8 = kqWarpLaneOffsets(row->step);
    const R off = W::fromLanes([&](int32_t) { return off8; });
    const R mask31 = W::set16(31), v32 = W::set16(32);
    const R pairIdx = W::set16(0x0202), pairBias = W::set16(0x0100);
    R w0[kKqWarpMaxRows], w1[kKqWarpMaxRows];
    for (int32_t r = 0; r < rows; ++r) {
      w1[r] = W::set16(int16_t(row->w1[r]));
      w0[r] = W::set16(int16_t(16 - row->w1[r]));
    }
    uint8_t edge[kLanes][2][16] = {};  // clamped copies: [block][upper, lower]
    const uint8_t* u[kLanes];
    const uint8_t* l[kLanes];
    int32_t f0[kLanes];
    float p = row->x;
    for (int32_t start = 0; start < count; start += kPixels) {
      for (int32_t b = 0; b < kLanes; ++b) {
        if (b > 0 && start + 8 * b >= count) {
          u[b] = u[b - 1];
          l[b] = l[b - 1];
          f0[b] = f0[b - 1];
          continue;
        }
        int32_t base;
        kqwarp::nextOrigin(row, start / 8 + b, &p, &base, &f0[b]);
        u[b] = kqwarp::blockWindow(row->src0, base, 8, width, edge[b][0]);
        l[b] = kqwarp::blockWindow(row->src1, base, 8, width, edge[b][1]);
      }
      const R q =
          W::add16(W::fromLanes([&](int32_t b) { return _mm_set1_epi16(int16_t(f0[b])); }), off);
      const R f = W::and_(q, mask31);
      // Byte weights (32 - f, f) per lane, and the byte pair (2i, 2i + 1)
      // that picks (s[base+i], s[base+i+1]) out of the interleaved window.
      const R wts = W::or_(W::sub16(v32, f), W::template slli16<8>(f));
      const R sel = W::add16(W::mullo16(W::template srli16<5>(q), pairIdx), pairBias);
      const R pu = W::fromLanes([&](int32_t b) { return kqWarpBytePairs(u[b]); });
      const R pl = W::fromLanes([&](int32_t b) { return kqWarpBytePairs(l[b]); });
      const R hu = W::template srli16<1>(W::maddubs(W::shuffle8(pu, sel), wts));
      const R hl = W::template srli16<1>(W::maddubs(W::shuffle8(pl, sel), wts));
      const int32_t n = count - start < kPixels ? count - start : kPixels;
      // The horizontal results serve every output row of the blocks.
      for (int32_t r = 0; r < rows; ++r) {
        const R v = W::template srli16<8>(W::add16(W::mullo16(hu, w0[r]), W::mullo16(hl, w1[r])));
        kqWarpStoreBytes(dst + r * dstStride + start, W::narrowWords(v), n);
      }
    }
  }
};

// Nearest-sample rows that take a plan, by the groups of Samples' records.
template <class W, class Samples>
struct KqWarpNearestX86 {
  using Plan = KqWarpPlan<W, typename Samples::Record, 0>;

  // False for a row that takes no plan.
  static bool planned(uint8_t* dst, const KQWarpRow* row) {
    if (!Plan::takes(row)) return false;
    const Plan plan = Plan::of(row, dst, Samples::build);
    const uint8_t* s = row->src0;
    // The next source row (rows are srcWidth apart), which an enlargement
    // reads next.
    const uintptr_t ahead = reinterpret_cast<uintptr_t>(s) + uintptr_t(row->srcWidth);
    const auto fast = [&](const auto& rec, typename W::R*) {
      W::store(dst + rec.k0, Samples::sample(rec, s));
    };
    if constexpr (Samples::Record::kEdges) {
      plan.forGroups(ahead, fast, [&](const auto& rec, typename W::R*) {
        Samples::edgeSample(rec, row, dst + rec.k0);
      });
    } else {
      plan.forGroups(ahead, fast, nullptr);
    }
    return true;
  }
};

// Nearest-sample rows of interleaved pairs, kLanes blocks of 8 pixels per
// step, block b in 128-bit lane b. A block's pixels read pairs base ..
// base + 7 (a vector-range step moves lane 7 at most 7 columns on), so one
// 16-byte window from pair base holds them all (a clamped copy where it
// leaves the row), and the block's shuffle bytes (kqwarp::PairBlock) pick
// each pixel's two bytes out of it. Rows of a walked chain take their
// blocks from the plan; others make each block as they reach it. Other
// steps go through the scalar kernel. The last step repeats its last block
// in lanes past the row's end and stores only the row's pairs.
template <class W>
struct KqWarpNearestPairsX86 {
  using R = typename W::R;
  static constexpr int32_t kLanes = W::kStep / 16, kPixels = 8 * kLanes;

  static void row(uint8_t* dst, const KQWarpRow* row, int32_t swap) {
    if (!kqwarp::vectorStep(row->step)) {
      kqWarpNearestPairRow_c(dst, row, swap);
      return;
    }
    const int32_t count = row->count, width = row->srcWidth;
    const kqwarp::PairBlock* plan = kqwarp::pairPlan(row, swap);
    kqwarp::PairBlock own[kLanes];
    uint8_t edge[kLanes][16] = {};
    const kqwarp::PairBlock* blk[kLanes];
    const uint8_t* win[kLanes];
    float p = row->x;
    for (int32_t start = 0; start < count; start += kPixels) {
      for (int32_t b = 0; b < kLanes; ++b) {
        if (b > 0 && start + 8 * b >= count) {
          blk[b] = blk[b - 1];
          win[b] = win[b - 1];
          continue;
        }
        if (plan != nullptr) {
          blk[b] = &plan[start / 8 + b];
        } else {
          int32_t base, phase;
          kqwarp::nextOrigin(row, start / 8 + b, &p, &base, &phase);
          kqwarp::pairBlockOf(row, base, phase, swap != 0 ? 1 : 0, &own[b]);
          blk[b] = &own[b];
        }
        win[b] = blk[b]->offset >= 0
                     ? row->src0 + blk[b]->offset
                     : kqwarp::pairWindow(row->src0, blk[b]->base, 7, width, edge[b]);
      }
      const R v =
          W::shuffle8(W::fromLanes([&](int32_t b) {
                        return _mm_loadu_si128(reinterpret_cast<const __m128i*>(win[b]));
                      }),
                      W::fromLanes([&](int32_t b) {
                        return _mm_load_si128(reinterpret_cast<const __m128i*>(blk[b]->sel));
                      }));
      const int32_t left = count - start;
      if (left >= kPixels) {
        W::store(dst + 2 * start, v);
      } else {
        alignas(W::kStep) uint8_t tmp[W::kStep];
        W::storeA(tmp, v);
        std::memcpy(dst + 2 * start, tmp, size_t(2 * left));
      }
    }
  }
};
