// chroma_x86.h - the x86 chroma noise-reduction runs, written once over a
// chroma traits type C.
//
// chroma_sse41.cpp, chroma_avx2.cpp and chroma_avx512.cpp instantiate
// KqChromaX86<C> with their own C, declared in an anonymous namespace (as
// the traits of runtime/x86/vec_x86.h are), so that every instantiation
// stays inside the translation unit built with the matching target flags.
//
// A step makes C::kOut outputs of U and of V. Per tap and output:
//   d   = |centre - tap|                        (8-bit lanes)
//   wgt = W[k] - ((S[k] * r + step / 2) >> shift),  k = min(d >> shift, 8),
//         r = d & (step - 1)                    (the table weight of d)
//   w   = ((wV * wU) >> 8) * wY,  w = (w >> 11) + (w >> 12)
//   sum += w, sumU += w * tapU, sumV += w * tapV (16-bit lanes)
// and the mean truncate(sum / weight + 0.5) with a float division in 32-bit
// lanes, exactly as the scalar reference computes it (chroma_dsp.h).
//
// C provides:
//  - V: the vec_x86.h traits of the 16-bit (and 32-bit, float) lanes; H: those
//    of the 8-bit lanes, B = H::R. kOut outputs occupy one B (SSE4.1: the low
//    8 bytes of a 128-bit register; AVX2: a 256-bit one; AVX-512: a 256-bit
//    one, the words in 512 bits) and kHalves registers of words
//    (W = KqChromaWords<V, kHalves>).
//  - widen (B -> W) and narrow (W of values <= 255 -> B), lo32 / hi32 (the
//    words of a register as two registers of 32-bit lanes) and join32 (back,
//    values <= 255), each pair inverse to each other: the lanes in between
//    may hold the outputs in any order, the arithmetic being element-wise
//    (AVX2: even outputs in one register, odd ones in the other).
//  - Loads of kOut bytes in output order, each reading exactly the bytes the
//    8-output blocks it stands for would read, so that the vector ranges of
//    kqChromaVectorBlocks hold for every width: loadOut / storeOut (kOut
//    bytes), even / evenOdd (bytes 0, 2, .. / 1, 3, .. of 2 kOut), every4th0
//    / every4th (bytes 0, 4, .. / 2, 6, .. of 4 kOut), repeat (kOut / 2
//    bytes, each twice) and lumaRepeat (bytes 0, 4, .. of 2 kOut, each twice).
//  - Tables, load<kShift>(c), and the weights of differences: either
//    kByteTable and weightBytes<kShift>(d, t), the table weight of each byte
//    (a lookup of the whole table), or t.w / t.s as B registers for the
//    lookup of W[k] and S[k] with shuffle8 in the arithmetic above.
//  - Narrow: the traits of the 8-output steps taken for runs shorter than
//    one step, and narrowTables(t), their tables.
//  - With kOut > 8, shiftUp / shiftDown for whole rows. A wider level takes
//    whole rows where the plane allows (wholeRows). At a row's ends a far tap
//    outside the work area is the centre tap, so the first and last steps
//    build such taps from the centre tap vector moved by the tap distance s,
//    each lane that nothing moves into keeping its own value:
//      shiftUp(v, s)[i] = i >= s ? v[i - s] : v[i],
//      shiftDown(v, s)[i] = i + s < kOut ? v[i + s] : v[i],
//    and no load leaves the row.
#pragma once

#include <smmintrin.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "filters/chroma_dsp.h"
#include "filters/chroma_rows.h"
#include "runtime/x86/vec_x86.h"

// The words of kOut outputs in kHalves registers.
template <class V, int kHalves>
struct KqChromaWords {
  typename V::R h[kHalves];
};

template <class C>
struct KqChromaX86 {
  using V = typename C::V;
  using H = typename C::H;
  using R = typename V::R;
  using F = typename V::F;
  using B = typename H::R;
  using W = KqChromaWords<V, C::kHalves>;
  using Tables = typename C::Tables;
  static constexpr int kOut = C::kOut;
  static constexpr int kHalves = C::kHalves;
  static constexpr bool kVector = true;

  // One step's outputs, computed before any of them is stored.
  struct Out {
    B u, v;
  };

  struct Acc {
    W w, u, v;
  };

  // One tap's luma, U and V.
  struct Tap {
    B y, u, v;
  };

  __attribute__((always_inline)) static Acc accStart(int weight) {
    Acc a;
    for (int i = 0; i < kHalves; ++i) {
      a.w.h[i] = V::set16(int16_t(weight));
      a.u.h[i] = V::zero();
      a.v.h[i] = V::zero();
    }
    return a;
  }

  __attribute__((always_inline)) static B absDiff(B a, B b) {
    return H::or_(H::subsU8(a, b), H::subsU8(b, a));
  }

  // Table weights of the differences d, as words.
  template <int kShift>
  __attribute__((always_inline)) static W weightOf(B d, const Tables& t) {
    if constexpr (C::kByteTable) {
      return C::widen(C::template weightBytes<kShift>(d, t));
    } else {
      // No 8-bit shift: shift 16-bit lanes and drop the bits from the neighbour.
      B k = H::and_(H::template srli16<kShift>(d), H::set8(int8_t(0xFF >> kShift)));
      k = H::minU8(k, H::set8(8));
      const W r = C::widen(H::and_(d, H::set8(int8_t((1 << kShift) - 1))));
      const W wk = C::widen(H::shuffle8(t.w, k));
      const W sk = C::widen(H::shuffle8(t.s, k));
      W out;
      for (int i = 0; i < kHalves; ++i) {
        // S[k] * r + step / 2 <= 255 * 31 + 16: no 16-bit overflow.
        const R corr = V::template srli16<kShift>(
            V::add16(V::mullo16(sk.h[i], r.h[i]), V::set16(int16_t(1 << (kShift - 1)))));
        out.h[i] = V::sub16(wk.h[i], corr);
      }
      return out;
    }
  }

  template <int kShift, int kLumaGain = 0>
  __attribute__((always_inline)) static void addTap(Acc* a, const Tables& t, B cY, B cU, B cV, B tY,
                                                    B tU, B tV) {
    // min(|dY| << gain, 255) by saturating doublings (no 8-bit shifts).
    B dY = absDiff(cY, tY);
    for (int i = 0; i < kLumaGain; ++i) dY = H::addsU8(dY, dY);
    const W wY = weightOf<kShift>(dY, t);
    const W wU = weightOf<kShift>(absDiff(cU, tU), t);
    const W wV = weightOf<kShift>(absDiff(cV, tV), t);
    const W u = C::widen(tU), v = C::widen(tV);
    for (int i = 0; i < kHalves; ++i) {
      R p = V::template srli16<8>(V::mullo16(wV.h[i], wU.h[i]));  // <= 254
      p = V::mullo16(p, wY.h[i]);                                 // <= 64770, unsigned
      const R w = V::add16(V::template srli16<11>(p), V::template srli16<12>(p));
      a->w.h[i] = V::add16(a->w.h[i], w);
      a->u.h[i] = V::add16(a->u.h[i], V::mullo16(w, u.h[i]));
      a->v.h[i] = V::add16(a->v.h[i], V::mullo16(w, v.h[i]));
    }
  }

  // The words as two registers of 32-bit lanes, and back (C::join32 of
  // values <= 255).
  __attribute__((always_inline)) static R lo32(R a) { return C::lo32(a); }
  __attribute__((always_inline)) static R hi32(R a) { return C::hi32(a); }

  __attribute__((always_inline)) static R mean32(R sum, R weight) {
    F q = V::divF(V::toFloat(sum), V::toFloat(weight));
    q = V::addF(q, V::setF(0.5f));
    q = V::minF(q, V::setF(255.0f));
    return V::truncToInt(q);
  }

  // Means of 32-bit sums (lo / hi: as lo32 / hi32 split the words) by the
  // 16-bit weights, back in the weights' word lanes.
  __attribute__((always_inline)) static R meanWords(R sumLo, R sumHi, R weight) {
    return C::join32(mean32(sumLo, lo32(weight)), mean32(sumHi, hi32(weight)));
  }

  __attribute__((always_inline)) static B means(const W& sum, const W& weight) {
    W m;
    for (int i = 0; i < kHalves; ++i)
      m.h[i] = meanWords(lo32(sum.h[i]), hi32(sum.h[i]), weight.h[i]);
    return C::narrow(m);
  }

  // Steps: inside the row, or the first / last step of a whole row, whose
  // left / right far taps are clamped to the centre where they leave it.
  enum StepKind { kInner, kFirst, kLast };
  template <int kKind>
  using Kind = std::integral_constant<int, kKind>;

  // Pass 1: outputs x0.. of half-size row y (full-size columns 2*x0..);
  // block and far sums kept apart (each <= 46920), added in 32 bits.
  template <int kShift, int kKind>
  __attribute__((always_inline)) static Out pass1Step(const KQChromaPassContext* c, const Tables& t,
                                                      int x0, int y, int yUp, int yDown) {
    const size_t w = size_t(c->chromaWidth), lw = size_t(c->lumaWidth);
    const int M = c->margin;
    const int X0 = 2 * x0, Y = 2 * y;
    const uint8_t* lumaY = c->luma + size_t(2 * Y) * lw + 2 * X0;
    const uint8_t* lumaY1 = lumaY + 2 * lw;
    const uint8_t* lumaUp = c->luma + size_t(2 * yUp) * lw + 2 * X0;
    const uint8_t* lumaDown = c->luma + size_t(2 * yDown) * lw + 2 * X0;
    const size_t row = size_t(Y) * w + X0;
    const B cU = C::even(c->srcU + row), cV = C::even(c->srcV + row);
    B cY, lY2, lY10, lY12;
    C::every4th(lumaY, &cY, &lY2);
    C::every4th(lumaY1, &lY10, &lY12);
    B u00, u01, u10, u11, v00, v01, v10, v11;
    C::evenOdd(c->inU + row, &u00, &u01);
    C::evenOdd(c->inV + row, &v00, &v01);
    C::evenOdd(c->inU + row + w, &u10, &u11);
    C::evenOdd(c->inV + row + w, &v10, &v11);

    Acc block = accStart(1);
    addTap<kShift>(&block, t, cY, cU, cV, cY, u00, v00);
    addTap<kShift>(&block, t, cY, cU, cV, lY2, u01, v01);
    addTap<kShift>(&block, t, cY, cU, cV, lY10, u10, v10);
    addTap<kShift>(&block, t, cY, cU, cV, lY12, u11, v11);

    // Far taps M full-size columns (M / 2 outputs) left and right; the
    // centre tap is the block's first (cY, u00, v00). Each tap is formed
    // where it is added, keeping few registers live.
    auto left = [&]() __attribute__((always_inline)) {
      if constexpr (kKind == kFirst)
        return Tap{C::shiftUp(cY, M / 2), C::shiftUp(u00, M / 2), C::shiftUp(v00, M / 2)};
      else
        return Tap{C::every4th0(lumaY - 2 * M), C::even(c->inU + row - M),
                   C::even(c->inV + row - M)};
    };
    auto right = [&]() __attribute__((always_inline)) {
      if constexpr (kKind == kLast)
        return Tap{C::shiftDown(cY, M / 2), C::shiftDown(u00, M / 2), C::shiftDown(v00, M / 2)};
      else
        return Tap{C::every4th0(lumaY + 2 * M), C::even(c->inU + row + M),
                   C::even(c->inV + row + M)};
    };
    Acc far = accStart(0);
    const size_t up = size_t(yUp) * w + X0, down = size_t(yDown) * w + X0;
    addTap<kShift>(&far, t, cY, cU, cV, C::every4th0(lumaUp), C::even(c->inU + up),
                   C::even(c->inV + up));
    const Tap l = left();
    addTap<kShift>(&far, t, cY, cU, cV, l.y, l.u, l.v);
    const Tap r = right();
    addTap<kShift>(&far, t, cY, cU, cV, r.y, r.u, r.v);
    addTap<kShift>(&far, t, cY, cU, cV, C::every4th0(lumaDown), C::even(c->inU + down),
                   C::even(c->inV + down));

    W mu, mv;
    for (int i = 0; i < kHalves; ++i) {
      const R weight = V::add16(block.w.h[i], far.w.h[i]);
      mu.h[i] = meanWords(V::add32(lo32(block.u.h[i]), lo32(far.u.h[i])),
                          V::add32(hi32(block.u.h[i]), hi32(far.u.h[i])), weight);
      mv.h[i] = meanWords(V::add32(lo32(block.v.h[i]), lo32(far.v.h[i])),
                          V::add32(hi32(block.v.h[i]), hi32(far.v.h[i])), weight);
    }
    return Out{C::narrow(mu), C::narrow(mv)};
  }

  // Pass 2: outputs x0.. of half-size row y.
  template <int kShift, int kKind>
  __attribute__((always_inline)) static Out pass2Step(const KQChromaPassContext* c, const Tables& t,
                                                      int x0, int y, int yUp, int yDown) {
    const size_t w = size_t(c->chromaWidth), wh = w / 2, lw = size_t(c->lumaWidth);
    const int m = c->margin / 2;
    const uint8_t* lumaY = c->luma + size_t(4 * y) * lw + 4 * x0;
    const uint8_t* lumaUp = c->luma + size_t(4 * yUp) * lw + 4 * x0;
    const uint8_t* lumaDown = c->luma + size_t(4 * yDown) * lw + 4 * x0;
    const size_t src = size_t(2 * y) * w + 2 * x0;
    const B cU = C::even(c->srcU + src), cV = C::even(c->srcV + src);
    const B cY = C::every4th0(lumaY);
    const size_t at = size_t(y) * wh + x0, up = size_t(yUp) * wh + x0,
                 down = size_t(yDown) * wh + x0;
    // Left and right taps m outputs away, formed where they are added.
    auto left = [&]() __attribute__((always_inline)) {
      if constexpr (kKind == kFirst)
        return Tap{C::shiftUp(cY, m), C::shiftUp(C::loadOut(c->inU + at), m),
                   C::shiftUp(C::loadOut(c->inV + at), m)};
      else
        return Tap{C::every4th0(lumaY - 4 * m), C::loadOut(c->inU + at - m),
                   C::loadOut(c->inV + at - m)};
    };
    auto right = [&]() __attribute__((always_inline)) {
      if constexpr (kKind == kLast)
        return Tap{C::shiftDown(cY, m), C::shiftDown(C::loadOut(c->inU + at), m),
                   C::shiftDown(C::loadOut(c->inV + at), m)};
      else
        return Tap{C::every4th0(lumaY + 4 * m), C::loadOut(c->inU + at + m),
                   C::loadOut(c->inV + at + m)};
    };
    Acc a = accStart(1);
    addTap<kShift>(&a, t, cY, cU, cV, C::every4th0(lumaUp), C::loadOut(c->inU + up),
                   C::loadOut(c->inV + up));
    const Tap l = left();
    addTap<kShift>(&a, t, cY, cU, cV, l.y, l.u, l.v);
    addTap<kShift>(&a, t, cY, cU, cV, cY, C::loadOut(c->inU + at), C::loadOut(c->inV + at));
    const Tap r = right();
    addTap<kShift>(&a, t, cY, cU, cV, r.y, r.u, r.v);
    addTap<kShift>(&a, t, cY, cU, cV, C::every4th0(lumaDown), C::loadOut(c->inU + down),
                   C::loadOut(c->inV + down));
    return Out{means(a.u, a.w), means(a.v, a.w)};
  }

  // Pass 3: full-size outputs 2*hx0.. of row Y. It reads the source bytes
  // of exactly the outputs it makes (in-place use: see steps()).
  template <int kShift, int kKind>
  __attribute__((always_inline)) static Out pass3Step(const KQChromaPassContext* c, const Tables& t,
                                                      int hx0, int Y, int yUp, int y, int yDown) {
    const size_t w = size_t(c->chromaWidth), wh = w / 2, lw = size_t(c->lumaWidth);
    const int X0 = 2 * hx0;
    const size_t at = size_t(Y) * w + X0;
    const B cU = C::loadOut(c->srcU + at), cV = C::loadOut(c->srcV + at);
    const B cY = C::even(c->luma + size_t(2 * Y) * lw + 2 * X0);
    const uint8_t* lumaY = c->luma + size_t(4 * y) * lw + 4 * hx0;
    const uint8_t* lumaUp = c->luma + size_t(4 * yUp) * lw + 4 * hx0;
    const uint8_t* lumaDown = c->luma + size_t(4 * yDown) * lw + 4 * hx0;
    const size_t mid = size_t(y) * wh + hx0, up = size_t(yUp) * wh + hx0,
                 down = size_t(yDown) * wh + hx0;
    Acc a;  // own colour, weight 1
    a.w = accStart(1).w;
    a.u = C::widen(cU);
    a.v = C::widen(cV);
    // The half-size samples left and right of each output's own (one
    // half-size column is two outputs), formed where they are added.
    auto left = [&]() __attribute__((always_inline)) {
      if constexpr (kKind == kFirst)
        return Tap{C::shiftUp(C::lumaRepeat(lumaY), 2), C::shiftUp(C::repeat(c->inU + mid), 2),
                   C::shiftUp(C::repeat(c->inV + mid), 2)};
      else
        return Tap{C::lumaRepeat(lumaY - 4), C::repeat(c->inU + mid - 1),
                   C::repeat(c->inV + mid - 1)};
    };
    auto right = [&]() __attribute__((always_inline)) {
      if constexpr (kKind == kLast)
        return Tap{C::shiftDown(C::lumaRepeat(lumaY), 2), C::shiftDown(C::repeat(c->inU + mid), 2),
                   C::shiftDown(C::repeat(c->inV + mid), 2)};
      else
        return Tap{C::lumaRepeat(lumaY + 4), C::repeat(c->inU + mid + 1),
                   C::repeat(c->inV + mid + 1)};
    };
    constexpr int g = kKqChromaPass3LumaGain;
    addTap<kShift, g>(&a, t, cY, cU, cV, C::lumaRepeat(lumaUp), C::repeat(c->inU + up),
                      C::repeat(c->inV + up));
    const Tap l = left();
    addTap<kShift, g>(&a, t, cY, cU, cV, l.y, l.u, l.v);
    addTap<kShift, g>(&a, t, cY, cU, cV, C::lumaRepeat(lumaY), C::repeat(c->inU + mid),
                      C::repeat(c->inV + mid));
    const Tap r = right();
    addTap<kShift, g>(&a, t, cY, cU, cV, r.y, r.u, r.v);
    addTap<kShift, g>(&a, t, cY, cU, cV, C::lumaRepeat(lumaDown), C::repeat(c->inU + down),
                      C::repeat(c->inV + down));
    return Out{means(a.u, a.w), means(a.v, a.w)};
  }

  // Steps of kOut outputs over [x0, x0 + n), n >= kOut (n >= 2 kOut for a
  // whole row): the first one a kFirst step with `first`, the last one a
  // kLast step with `last`, and where n is no multiple of kOut the last one
  // ends at x0 + n. That one and the step before it overlap, and both are
  // computed before either is stored, so that every step reads the source
  // bytes of its outputs as they were (pass 3 runs in place); the overlap
  // gets equal bytes twice. Before a kLast step, a step whose far taps
  // (`reach` outputs away) would leave the row starts early enough not to;
  // that happens only in passes 1 and 2 (pass 3: even positions, reach 2),
  // whose outputs are not their inputs. The 8-output steps only ever get
  // runs of whole blocks inside the margins: one step per block.
  template <class Compute, class Store>
  __attribute__((always_inline)) static void steps(int x0, int n, bool first, bool last, int reach,
                                                   Compute compute, Store store) {
    if constexpr (kOut == 8) {
      for (int x = x0; x < x0 + n; x += kOut) store(x, compute(x, Kind<kInner>()));
    } else {
      const int end = x0 + n, lastX = end - kOut;
      int x = x0;
      if (first) {
        store(x, compute(x, Kind<kFirst>()));
        x += kOut;
      }
      for (; x + kOut <= lastX; x += kOut) store(x, compute(x, Kind<kInner>()));
      auto finish = [&](int before, auto kind) __attribute__((always_inline)) {
        if (x < lastX) {
          const Out a = compute(before, Kind<kInner>()), b = compute(lastX, kind);
          store(before, a);
          store(lastX, b);
        } else {
          store(lastX, compute(lastX, kind));
        }
      };
      if (last)
        finish(x < lastX - reach ? x : lastX - reach, Kind<kLast>());
      else
        finish(x, Kind<kInner>());
    }
  }

  using Narrow = KqChromaX86<typename C::Narrow>;

  // The Blocks interface of chroma_rows.h.
  template <int kShift>
  static Tables load(const KQChromaPassContext* c) {
    return C::template load<kShift>(c);
  }

  // Whole rows at the wider levels, where the first and last steps hold
  // every output with a clamped tap and the loads of the steps between them
  // stay inside the row: in passes 1 and 2 two steps and a far tap distance
  // s = margin / 2 of at most half a step (a step pulled back by s before
  // the last one still starts s or more outputs into the row), in pass 3
  // two steps of full-size outputs.
  static bool wholeRows(const KQChromaPassContext* c, int pass) {
    if constexpr (kOut == 8) {
      return false;
    } else {
      const int wh = c->chromaWidth / 2;
      if (pass == 3) return wh >= kOut;
      return wh >= 2 * kOut && c->margin >= 2 && c->margin <= kOut;
    }
  }

  // Runs shorter than one step take the narrow steps (8 outputs); runs
  // from output 0 or to the row's end are whole rows, their end steps
  // clamping their taps. Passes 1 and 2 both write half-size rows of U and
  // V and differ only in their step.
  template <int kPass, int kShift>
  static void halfSizeRun(const KQChromaPassContext* c, const Tables& t, int x0, int n, int y,
                          int yUp, int yDown) {
    if constexpr (kOut > 8) {
      if (n < kOut) {
        if constexpr (kPass == 1) {
          Narrow::template pass1<kShift>(c, C::narrowTables(t), x0, n, y, yUp, yDown);
        } else {
          Narrow::template pass2<kShift>(c, C::narrowTables(t), x0, n, y, yUp, yDown);
        }
        return;
      }
    }
    const int wh = c->chromaWidth / 2;
    uint8_t* const outU = c->outU + size_t(y) * size_t(wh);
    uint8_t* const outV = c->outV + size_t(y) * size_t(wh);
    steps(
        x0, n, x0 == 0, x0 + n == wh, c->margin / 2,
        [&](int x, auto kind) __attribute__((always_inline)) {
          if constexpr (kPass == 1) {
            return pass1Step<kShift, decltype(kind)::value>(c, t, x, y, yUp, yDown);
          } else {
            return pass2Step<kShift, decltype(kind)::value>(c, t, x, y, yUp, yDown);
          }
        },
        [&](int x, const Out& o) __attribute__((always_inline)) {
          C::storeOut(outU + x, o.u);
          C::storeOut(outV + x, o.v);
        });
  }

  template <int kShift>
  static void pass1(const KQChromaPassContext* c, const Tables& t, int x0, int n, int y, int yUp,
                    int yDown) {
    halfSizeRun<1, kShift>(c, t, x0, n, y, yUp, yDown);
  }

  template <int kShift>
  static void pass2(const KQChromaPassContext* c, const Tables& t, int x0, int n, int y, int yUp,
                    int yDown) {
    halfSizeRun<2, kShift>(c, t, x0, n, y, yUp, yDown);
  }

  // Outputs are full-size columns X = 2 * hx.
  template <int kShift>
  static void pass3(const KQChromaPassContext* c, const Tables& t, int X0, int n, int Y, int yUp,
                    int y, int yDown) {
    if constexpr (kOut > 8) {
      if (n < kOut) {
        Narrow::template pass3<kShift>(c, C::narrowTables(t), X0, n, Y, yUp, y, yDown);
        return;
      }
    }
    const int we = (c->chromaWidth / 2) * 2;
    uint8_t* const outU = c->outU + size_t(Y) * size_t(c->chromaWidth);
    uint8_t* const outV = c->outV + size_t(Y) * size_t(c->chromaWidth);
    steps(
        X0, n, X0 == 0, X0 + n == we, 2,
        [&](int X, auto kind) __attribute__((always_inline)) {
          return pass3Step<kShift, decltype(kind)::value>(c, t, X / 2, Y, yUp, y, yDown);
        },
        [&](int X, const Out& o) __attribute__((always_inline)) {
          C::storeOut(outU + X, o.u);
          C::storeOut(outV + X, o.v);
        });
  }
};

namespace {

// Eight outputs per step in 128-bit registers: the bytes in the low half,
// the words filling one register. The SSE4.1 level, and the narrow steps of
// the wider ones.
struct KqChromaSse41 {
  using V = VecSse41;
  using H = VecSse41;
  using B = __m128i;
  using W = KqChromaWords<V, 1>;
  static constexpr int kOut = 8;
  static constexpr int kHalves = 1;
  static constexpr bool kByteTable = false;
  using Narrow = KqChromaSse41;  // never taken: runs are whole blocks of 8

  struct Tables {
    __m128i w;  // row 0 weights 0..7, then zeros
    __m128i s;  // row 0 slopes 0..7, then zeros
  };

  template <int kShift>
  static Tables load(const KQChromaPassContext* c) {
    alignas(16) uint8_t w[16] = {0}, s[16] = {0};
    for (int k = 0; k < 8; ++k) {
      w[k] = c->weights[k];
      s[k] = c->slopes[k];
    }
    return Tables{_mm_load_si128(reinterpret_cast<const __m128i*>(w)),
                  _mm_load_si128(reinterpret_cast<const __m128i*>(s))};
  }
  static Tables narrowTables(const Tables& t) { return t; }

  static B load16(const uint8_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
  static B loadOut(const uint8_t* p) {
    return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p));
  }
  static void storeOut(uint8_t* p, B v) { _mm_storel_epi64(reinterpret_cast<__m128i*>(p), v); }

  // Bytes 0, 2, .., 14 (or 1, 3, .., 15) of 16 into the low 8 lanes.
  static B even(const uint8_t* p) {
    return _mm_shuffle_epi8(
        load16(p), _mm_setr_epi8(0, 2, 4, 6, 8, 10, 12, 14, -1, -1, -1, -1, -1, -1, -1, -1));
  }
  static B odd(const uint8_t* p) {
    return _mm_shuffle_epi8(
        load16(p), _mm_setr_epi8(1, 3, 5, 7, 9, 11, 13, 15, -1, -1, -1, -1, -1, -1, -1, -1));
  }
  static void evenOdd(const uint8_t* p, B* e, B* o) {
    *e = even(p);
    *o = odd(p);
  }

  // Bytes o, o+4, .., o+28 of 32 into the low 8 lanes (o = 0 or 2).
  template <int kOffset>
  static B every4thAt(const uint8_t* p) {
    const __m128i lo =
        _mm_shuffle_epi8(load16(p), _mm_setr_epi8(kOffset, kOffset + 4, kOffset + 8, kOffset + 12,
                                                  -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1));
    const __m128i hi = _mm_shuffle_epi8(
        load16(p + 16), _mm_setr_epi8(-1, -1, -1, -1, kOffset, kOffset + 4, kOffset + 8,
                                      kOffset + 12, -1, -1, -1, -1, -1, -1, -1, -1));
    return _mm_or_si128(lo, hi);
  }
  static B every4th0(const uint8_t* p) { return every4thAt<0>(p); }
  static void every4th(const uint8_t* p, B* o0, B* o2) {
    *o0 = every4thAt<0>(p);
    *o2 = every4thAt<2>(p);
  }

  // Four half-size samples, each repeated for the two full-size pixels it holds.
  static B repeat(const uint8_t* p) {
    int32_t v;
    std::memcpy(&v, p, 4);
    return _mm_shuffle_epi8(_mm_cvtsi32_si128(v),
                            _mm_setr_epi8(0, 0, 1, 1, 2, 2, 3, 3, -1, -1, -1, -1, -1, -1, -1, -1));
  }

  // Luma at the full-size positions of four half-size samples, repeated twice.
  static B lumaRepeat(const uint8_t* p) {
    return _mm_shuffle_epi8(
        load16(p), _mm_setr_epi8(0, 0, 4, 4, 8, 8, 12, 12, -1, -1, -1, -1, -1, -1, -1, -1));
  }

  static W widen(B b) { return W{{_mm_cvtepu8_epi16(b)}}; }
  static B narrow(const W& m) { return _mm_packus_epi16(m.h[0], _mm_setzero_si128()); }
  static __m128i lo32(__m128i a) { return _mm_cvtepu16_epi32(a); }
  static __m128i hi32(__m128i a) { return _mm_cvtepu16_epi32(_mm_srli_si128(a, 8)); }
  static __m128i join32(__m128i lo, __m128i hi) { return _mm_packus_epi32(lo, hi); }
};

}  // namespace
