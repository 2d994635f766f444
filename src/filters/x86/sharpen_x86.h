// sharpen_x86.h - the x86 sharpening row, written once over a vector type.
//
// luma_sse41.cpp, luma_avx2.cpp and luma_avx512.cpp instantiate this over
// the traits type V of their level (runtime/x86/vec_x86.h: 128, 256 or 512
// bits, in an anonymous namespace), so every instantiation stays inside the
// translation unit built with the matching target flags; the header's
// non-template helpers are static for the same reason.
#pragma once

#include <xmmintrin.h>

#include <cstdint>
#include <cstring>

#include "filters/luma_dsp.h"

// The sharpening row over chunks of columns: the vertical blur V of the
// chunk goes to a line buffer (bytes), and the horizontal taps are plain
// unaligned loads from it. V and output steps both take V::kStep columns
// per step through maddubs on interleaved byte pairs; unpacklo/hi work
// within 128-bit halves, so with 256 bits "lo" holds columns 0-7 | 16-23
// and "hi" 8-15 | 24-31, and packus of (lo, hi) restores the column order.
//
// maddubs takes the weights as signed bytes: they must lie in [0, 127]
// (the driver's kernels use 7/31/52 and 19/19/52; see
// kqSharpenWeightsFitBytes). With 2 * outer + 2 * inner + centre = 128
// every pair sum is then at most 2 * 64 * 255 or 127 * 255 + 64, below the
// 16-bit saturation.
template <class V>
struct KqSharpenX86 {
  using R = typename V::R;
  static constexpr int32_t kStep = V::kStep;
  // At 64 columns per step the row is fast enough for the plane's memory
  // traffic to show: on planes larger than the cache, two passes over the
  // chunk (all of V, then all outputs) leave the loads of the new input
  // row and the stores of the output row in separate bursts and lose about
  // 20 % to memory stalls. Interleaved, each step of V runs kLag steps
  // ahead of an output step (far enough that the output's loads of the
  // line buffer find its stores written back, not forwarded) and the
  // traffic overlaps with the arithmetic; in cache that costs about 10 %.
  // The narrower levels are bound by their arithmetic even on large planes
  // (interleaved they lost about 5 %) and keep the two passes.
  static constexpr bool kInterleave = kStep >= 64;
  static constexpr int32_t kLag = 6;
  // A multiple of 4096 keeps the line buffer's page offset (see row())
  // from one chunk to the next.
  static constexpr int32_t kChunk = kInterleave ? 4096 : 2048;
  // Columns of V kept to the left of the chunk (from the previous chunk,
  // or the edge repeats): the last step of a short final chunk starts up
  // to kStep columns before the chunk and reads 2 more.
  static constexpr int32_t kLeft = 2 * kStep;

  R wOI, wIO, wC64;  // vertical: (r0, r1), (r3, r4), (r2, 1)
  R wOO, wII, wCN;   // horizontal: (V-2, V+2), (V-1, V+1), (V0, o)
  R gainK, gain, t, nt;
  // Row pointers held by value: byte stores through dst may alias the
  // caller's pointer array, which would force a reload per use.
  const uint8_t* rows[5];
  uintptr_t nextRow;  // rows[4] - rows[3], for the prefetch

  KqSharpenX86(const uint8_t* const* r, const KQSharpenParams* p) {
    const int16_t wo = int16_t(p->wOuter), wi = int16_t(p->wInner), wc = int16_t(p->wCentre);
    wOI = V::set16(int16_t(wo | wi << 8));
    wIO = V::set16(int16_t(wi | wo << 8));
    wC64 = V::set16(int16_t(wc | 64 << 8));
    wOO = V::set16(int16_t(wo | wo << 8));
    wII = V::set16(int16_t(wi | wi << 8));
    wCN = V::set16(int16_t(wc | 0x80 << 8));  // (centre, -128)
    const int16_t g = int16_t(uint16_t(p->gain));
    gain = V::set16(g);
    gainK = V::set16(int16_t(uint16_t(-4 * g)));  // read only when |g| <= 8191
    t = V::set16(int16_t(uint16_t(p->threshold)));
    nt = V::sub16(V::zero(), t);
    for (int k = 0; k < 5; ++k) rows[k] = r[k];
    nextRow = reinterpret_cast<uintptr_t>(r[4]) - reinterpret_cast<uintptr_t>(r[3]);  // wraps
  }

  // (a * b) >> 8 of signed 16-bit lanes from the full 32-bit product,
  // narrowed by truncation: bits 8..23 of the product.
  static R mulShr8(R a, R b) {
    return V::or_(V::template srli16<8>(V::mullo16(a, b)), V::template slli16<8>(V::mulhi16(a, b)));
  }

  // V of columns x .. x + kStep - 1 into v[0 ..] (dst: the output row):
  // (o*(r0+r4) + i*(r1+r3) + c*r2 + 64) >> 7 <= 255.
  void vStep(uint8_t* v, const uint8_t* dst, int32_t x) const {
    const R one = V::set8(1);
    // Row y + 2 is the only input row not yet in cache (the others were
    // read for the previous output rows), and the row after it is the one
    // the next call will miss on: fetch that one a whole row ahead, at
    // the distance rows[4] - rows[3] (the plane stride for interior rows;
    // near the edges, where the rows are mirrored, it just points at a row
    // already read). A prefetch never faults, so the address is formed as
    // an integer and may lie outside the plane.
    const uintptr_t ahead = reinterpret_cast<uintptr_t>(rows[4]) + nextRow + uintptr_t(x);
    _mm_prefetch(reinterpret_cast<const char*>(ahead), _MM_HINT_T0);
    // Output lines, taking their misses off the stores: the two-pass row
    // fetches the chunk's own lines during its V pass; the interleaved row,
    // whose stores follow V by only kLag steps, the next output row's (the
    // planes share their stride; near the plane's edges this points at some
    // other row, and a prefetch never faults). As above, the address is an
    // integer: dst + nextRow would be pointer arithmetic outside the plane,
    // undefined even where it is never dereferenced.
    const uintptr_t outAhead =
        reinterpret_cast<uintptr_t>(dst) + (kInterleave ? nextRow : 0) + uintptr_t(x);
    _mm_prefetch(reinterpret_cast<const char*>(outAhead), _MM_HINT_T0);
    const R r0 = V::load(rows[0] + x), r1 = V::load(rows[1] + x), r2 = V::load(rows[2] + x);
    const R r3 = V::load(rows[3] + x), r4 = V::load(rows[4] + x);
    R lo = V::maddubs(V::unlo8(r0, r1), wOI);
    R hi = V::maddubs(V::unhi8(r0, r1), wOI);
    lo = V::add16(lo, V::maddubs(V::unlo8(r3, r4), wIO));
    hi = V::add16(hi, V::maddubs(V::unhi8(r3, r4), wIO));
    lo = V::add16(lo, V::maddubs(V::unlo8(r2, one), wC64));
    hi = V::add16(hi, V::maddubs(V::unhi8(r2, one), wC64));
    V::store(v, V::packus16(V::template srli16<7>(lo), V::template srli16<7>(hi)));
  }

  // From h' = H - 128 o (16-bit, exact: |h'| <= 32640) and the pair lanes
  // vo = V0 | o << 8, the output before packus. floor(h' / 32) is
  // (H >> 5) - 4o = -D.
  //
  // Small gains (|g| <= 8191): E = (D * g) >> 8 needs no truncation and
  // E >> 1 = floor(D * g / 512) = mulhi(-D * 32, -4g), where -D * 32 is
  // h' with its low 5 bits cleared. C >> 1 = clamp(E >> 1, -60, 60) (the
  // bounds are even), and with x = (C >> 1) + (E >> 1) - M (|x| < 29500,
  // no 16-bit wrap) the output is o + floor((x + 2) / 4) = o +
  // mulhrs(x, 8192).
  // Other gains: E from the full product, R in wrapping 16-bit lanes as in
  // the reference, and (R + 2) >> 2 as ((R >> 1) + 1) >> 1.
  // M = (L * 102) >> 8 = mulhi(L, 102 * 256) (|L| <= 32768).
  template <bool kSmallGain, bool kThreshold>
  R respond(R h, R vo) const {
    const R o = V::template srli16<8>(vo);
    R f;
    if (kSmallGain) {
      f = V::mulhi16(V::and_(h, V::set16(-32)), gainK);
    } else {
      const R d = V::sub16(V::zero(), V::template srai16<5>(h));
      f = V::template srai16<1>(mulShr8(d, gain));
    }
    const R c = V::max16(V::min16(f, V::set16(60)), V::set16(-60));
    R x = V::add16(f, c);
    if (kThreshold) {
      const R d = V::sub16(V::zero(), V::template srai16<5>(h));
      const R l = V::min16(t, V::max16(nt, d));
      x = V::sub16(x, V::mulhi16(l, V::set16(102 * 256)));
    }
    if (kSmallGain) return V::add16(o, V::mulhrs16(x, V::set16(8192)));
    const R r = V::add16(V::template slli16<2>(o), x);
    return V::template srai16<1>(V::add16(V::template srai16<1>(r), V::set16(1)));
  }

  // kStep outputs at x; q points at V(x) in the line buffer.
  // h' = o*(V-2 + V+2) + i*(V-1 + V+1) + c*V0 - 128*o.
  template <bool kSmallGain, bool kThreshold>
  void outStep(uint8_t* dst, const uint8_t* q, int32_t x) const {
    const R m2 = V::load(q - 2), p2 = V::load(q + 2), m1 = V::load(q - 1), p1 = V::load(q + 1);
    const R v0 = V::load(q), o = V::load(rows[2] + x);
    const R voLo = V::unlo8(v0, o), voHi = V::unhi8(v0, o);
    R lo = V::maddubs(V::unlo8(m2, p2), wOO);
    R hi = V::maddubs(V::unhi8(m2, p2), wOO);
    lo = V::add16(lo, V::maddubs(V::unlo8(m1, p1), wII));
    hi = V::add16(hi, V::maddubs(V::unhi8(m1, p1), wII));
    lo = V::add16(lo, V::maddubs(voLo, wCN));
    hi = V::add16(hi, V::maddubs(voHi, wCN));
    V::store(dst + x, V::packus16(respond<kSmallGain, kThreshold>(lo, voLo),
                                  respond<kSmallGain, kThreshold>(hi, voHi)));
  }

  // Calls f(x) for steps of kStep columns covering [x0, end): one at x0,
  // then from the first column after it where the centre row is
  // kStep-aligned (x0 + head) on, and a last one ending at end. Rows that
  // do not start on a vector boundary would otherwise have every load
  // straddle two cache lines (a 15-20 % loss with 512-bit steps). A range
  // shorter than one step gets one step ending at end, which may start
  // before x0, or at 0 on padded rows (end < kStep).
  template <class F>
  static void forSteps(int32_t x0, int32_t end, int32_t head, F f) {
    if (end - x0 <= kStep) {
      f(end >= kStep ? end - kStep : 0);
      return;
    }
    f(x0);
    int32_t x = x0 + (head != 0 ? head : kStep);
    for (; x + kStep <= end; x += kStep) f(x);
    if (x < end) f(end - kStep);
  }

  // V(nv), V(nv + 1) repeat V(nv - 1), once the chunk [x0, vEnd) has all
  // of its V and reaches the row's end. On padded rows (nv < kStep) the
  // repeat runs on to the end of the one step, whose extra outputs are
  // dropped but should not come from unset bytes.
  static void repeatEnd(uint8_t* v, int32_t nv, int32_t x0, int32_t vEnd) {
    if (vEnd != nv) return;
    const int32_t n = nv - x0, end = nv < kStep ? kStep + 2 : n + 2;
    for (int32_t c = n; c < end; ++c) v[c] = v[n - 1];
  }

  // Columns [0, nv) with nv >= 8. The rows must be readable for
  // max(nv, kStep) columns (the caller pads narrower rows) and dst writable
  // as far. Overlapping steps rewrite equal bytes.
  template <bool kSmallGain, bool kThreshold>
  void row(uint8_t* dst, int32_t nv) const {
    // The steps work on a local copy: the byte stores through dst and into
    // the line buffer may alias *this as far as the compiler knows, so
    // weights read through `this` would be reloaded after every store.
    const KqSharpenX86 k = *this;
    // The line buffer sits at a fixed distance from the centre row modulo
    // the 4096-byte page: loads whose address matches an earlier store's
    // in the low 12 bits wait for it, and with the buffer in the same
    // place as the rows within a page (its place on the stack is chance)
    // the row ran 15-20 % slower. 1024 bytes apart (3072 in the odd chunks
    // of 2048), no load comes near a store still in flight. That is also
    // the centre row's offset within 64 bytes, so the buffer's stores and
    // centre loads are aligned where the row's are.
    alignas(64) uint8_t buf[4096 + kLeft + kChunk + 2 * kStep];
    const uintptr_t centre = reinterpret_cast<uintptr_t>(k.rows[2]);
    const uintptr_t base = reinterpret_cast<uintptr_t>(buf + kLeft);
    uint8_t* const v = buf + kLeft + ((centre + 1024 - base) & 4095);  // v[i] = V(x0 + i)
    const int32_t head = int32_t((0 - centre) & uintptr_t(kStep - 1));
    for (int32_t x0 = 0; x0 < nv; x0 += kChunk) {
      const int32_t x1 = x0 + kChunk < nv ? x0 + kChunk : nv;
      // V(x1), V(x1 + 1) belong to the next chunk: one more step of V.
      const int32_t vEnd = x1 + kStep < nv ? x1 + kStep : nv;
      if (x0 > 0) std::memcpy(v - kLeft, v + kChunk - kLeft, kLeft);  // V(x0 - kLeft .. x0 - 1)
      if constexpr (kInterleave) {
        // Each V step runs kLag steps ahead of an output step. Output
        // step j reads V up to ox[j] + kStep + 1; the two step lists agree
        // up to the output's last two, and steps after the first lie a
        // whole step apart, so V steps 0 .. j + kLag (kLag >= 2) reach past
        // that. The last two output steps may read the repeats past the
        // row's end and wait for all of V.
        int32_t vx[kChunk / kStep + 3], ox[kChunk / kStep + 3];
        int32_t nV = 0, nO = 0;
        forSteps(x0, vEnd, head, [&](int32_t x) { vx[nV++] = x; });
        forSteps(x0, x1, head, [&](int32_t x) { ox[nO++] = x; });
        const auto vAt = [&](int32_t i) { k.vStep(v + (vx[i] - x0), dst, vx[i]); };
        const auto outAt = [&](int32_t j) {
          k.template outStep<kSmallGain, kThreshold>(dst, v + (ox[j] - x0), ox[j]);
        };
        int32_t i = 0, j = 0;
        for (; i < nV && i < kLag; ++i) vAt(i);
        if (x0 == 0) v[-1] = v[-2] = v[0];
        for (; i < nV && j + 2 < nO; ++i, ++j) {
          vAt(i);
          outAt(j);
        }
        for (; i < nV; ++i) vAt(i);
        repeatEnd(v, nv, x0, vEnd);
        for (; j < nO; ++j) outAt(j);
      } else {
        forSteps(x0, vEnd, head, [&](int32_t x) { k.vStep(v + (x - x0), dst, x); });
        if (x0 == 0) v[-1] = v[-2] = v[0];
        repeatEnd(v, nv, x0, vEnd);
        forSteps(x0, x1, head, [&](int32_t x) {
          k.template outStep<kSmallGain, kThreshold>(dst, v + (x - x0), x);
        });
      }
    }
  }
};

// Weights the maddubs form handles exactly: each in [0, 127] and summing
// to 128 as the contract asks. Anything else (a centre weight of 128)
// takes the scalar reference.
static inline bool kqSharpenWeightsFitBytes(const KQSharpenParams* p) {
  const uint32_t o = uint32_t(p->wOuter), i = uint32_t(p->wInner), c = uint32_t(p->wCentre);
  return o <= 127 && i <= 127 && c <= 127 && 2 * o + 2 * i + c == 128;
}

// The whole row: the vector part (rows narrower than one step through
// zero-padded copies), then the width % 8 tail of the scalar form.
template <class V>
void kqSharpenRowX86(uint8_t* dst, const uint8_t* const* rows, int32_t width,
                     const KQSharpenParams* p) {
  constexpr int32_t kStep = V::kStep;
  if (!kqSharpenWeightsFitBytes(p)) {
    kqSharpenRow_c(dst, rows, width, p);
    return;
  }
  const int32_t nv = width & ~7;
  if (nv >= kStep) {
    kqSharpenRunRow(KqSharpenX86<V>(rows, p), dst, nv, p);
  } else if (nv > 0) {
    alignas(32) uint8_t pad[6][kStep] = {};
    const uint8_t* r[5];
    for (int k = 0; k < 5; ++k) {
      std::memcpy(pad[k], rows[k], size_t(nv));
      r[k] = pad[k];
    }
    kqSharpenRunRow(KqSharpenX86<V>(r, p), pad[5], nv, p);
    std::memcpy(dst, pad[5], size_t(nv));
  }
  for (int32_t x = nv; x < width; ++x) dst[x] = kqSharpenTailPixel(rows[2], x, p);
}
