// nr_x86.h - the x86 noise-reduction blocks, written once over a vector type.
//
// luma_sse41.cpp, luma_avx2.cpp and luma_avx512.cpp instantiate this over
// the traits type V of their level (runtime/x86/vec_x86.h: 128, 256 or 512
// bits, in an anonymous namespace), so that every instantiation stays
// inside the translation unit built with the matching target flags. The
// SSE4.1 level uses only the border blocks: its interior row keeps a table
// of estimates, cheaper there than 128-bit divisions.
#pragma once

#include <cstddef>
#include <cstdint>

template <class V>
struct KqNrX86 {
  using R = typename V::R;
  using F = typename V::F;

  // One pair of taps (p1, p2) interleaved by bytes, against the centres
  // interleaved the same way (c, c): range weights 30 (-) |p - c| computed
  // on the pairs directly, then w1*p1 + w2*p2 <= 15300 per 16-bit lane via
  // maddubs. Each byte of wsum gathers one weight of every pair.
  __attribute__((always_inline)) static void pair(R pp, R cc, R k30, R& acc, R& wsum) {
    const R d = V::or_(V::subsU8(pp, cc), V::subsU8(cc, pp));
    const R w = V::subsU8(k30, d);
    acc = V::add16(acc, V::maddubs(pp, w));
    wsum = V::add8(wsum, w);
  }

  // The estimate of 1/d for 32-bit lanes d in 30..480, computed as the
  // emulation does: from the bits of float(d), a = 256 + top 8 mantissa
  // bits, b = floor(2^19 / (2a + 1)) and (b + 1) >> 1 as the new mantissa.
  // b comes from a float division: 2^19 / (2a + 1) is never an integer and
  // lies at least 1/1023 from one, far more than the quotient's rounding
  // error, so truncating the rounded quotient is the exact floor.
  __attribute__((always_inline)) static F estimate(R d) {
    const R bits = V::bitsOf(V::toFloat(d));
    const R den = V::or_(V::and_(V::template srli32<14>(bits), V::set32(0x1FE)), V::set32(0x201));
    const R b = V::truncToInt(V::divF(V::setF(524288.0f), V::toFloat(den)));
    const R mant =
        V::and_(V::template slli32<14>(V::add32(b, V::set32(1))), V::set32(int32_t{0xFF} << 15));
    const R expo = V::sub32(V::set32(int32_t{253} << 23), V::and_(bits, V::set32(0x7F800000)));
    return V::floatOf(V::or_(expo, mant));
  }

  // trunc(float(n) * estimate(d)) for the 32-bit lanes n, d (d in 30..480).
  // No clamp here: the quotient stays below 257, and the final packus to
  // bytes saturates it to 255 exactly as min(255, ...) would.
  __attribute__((always_inline)) static R divide(R n, R d) {
    return V::truncToInt(V::mulF(V::toFloat(n), estimate(d)));
  }

  // trunc(float(n) / float(d)): the exact division of the border frame
  // (n < 2^24, so both conversions are exact; the quotient is below 256).
  __attribute__((always_inline)) static R divideExact(R n, R d) {
    return V::truncToInt(V::divF(V::toFloat(n), V::toFloat(d)));
  }

  // Quotients of one accumulator half: the 16-bit lanes of a (first four
  // pairs), b (last four) and the weight sums d, taken as even and odd
  // 32-bit halves (masks and shifts, no shuffles), divided (by the estimate,
  // or exactly with kExact), and put back into their 16-bit lanes.
  template <bool kExact = false>
  __attribute__((always_inline)) static R quotients(R a, R b, R d) {
    const R lo16 = V::set32(0xFFFF);
    const R nEven = V::add32(V::and_(a, lo16), V::and_(b, lo16));
    const R nOdd = V::add32(V::template srli32<16>(a), V::template srli32<16>(b));
    const R dEven = V::and_(d, lo16), dOdd = V::template srli32<16>(d);
    const R qEven = kExact ? divideExact(nEven, dEven) : divide(nEven, dEven);
    const R qOdd = kExact ? divideExact(nOdd, dOdd) : divide(nOdd, dOdd);
    return V::or_(qEven, V::template slli32<16>(qOdd));
  }

  // The weighted sums of one set of 16-pixel blocks (one per 128-bit lane
  // of R): eight pairs of taps, the first four into accumulators a, the last
  // four into b (<= 4 * 15300 = 61200 each, unsigned 16 bits). unpack works
  // within 128-bit lanes, so each lane holds one block throughout and the
  // in-lane pack of result() restores pixel order.
  struct Sums {
    R ccLo, ccHi, aLo, aHi, bLo, bHi, wLo, wHi;

    __attribute__((always_inline)) explicit Sums(R c)
        : ccLo(V::unlo8(c, c)),
          ccHi(V::unhi8(c, c)),
          aLo(V::zero()),
          aHi(aLo),
          bLo(aLo),
          bHi(aLo),
          wLo(aLo),
          wHi(aLo) {}

    // Pair k (0..7) of taps p1, p2.
    __attribute__((always_inline)) void add(int k, R p1, R p2) {
      const R k30 = V::set8(30);
      pair(V::unlo8(p1, p2), ccLo, k30, k < 4 ? aLo : bLo, wLo);
      pair(V::unhi8(p1, p2), ccHi, k30, k < 4 ? aHi : bHi, wHi);
    }

    // Each weight byte holds 8 weights (<= 240); adding its two bytes gives
    // the weight sum of the pixel in the 16-bit lane of the accumulators.
    template <bool kExact>
    __attribute__((always_inline)) R result() const {
      const R ones = V::set8(1);
      const R dLo = V::maddubs(wLo, ones), dHi = V::maddubs(wHi, ones);
      return V::packus16(quotients<kExact>(aLo, bLo, dLo), quotients<kExact>(aHi, bHi, dHi));
    }
  };

  // The filtered bytes of the 16-pixel blocks at x of row src, their taps
  // read through tap(pointer); the centre itself is the first tap of the
  // first pair (its weight comes out as 30).
  template <class Tap>
  __attribute__((always_inline)) static R blocks(const uint8_t* src, ptrdiff_t stride, int32_t x,
                                                 Tap tap) {
    const uint8_t* up4 = src - 4 * stride;
    const uint8_t* up1 = src - stride;
    const uint8_t* dn1 = src + stride;
    const uint8_t* dn4 = src + 4 * stride;
    const R c = tap(src + x);
    Sums sums(c);
    sums.add(0, c, tap(src + x - 6));
    sums.add(1, tap(src + x - 1), tap(src + x + 1));
    sums.add(2, tap(src + x + 6), tap(up1 + x - 4));
    sums.add(3, tap(up1 + x), tap(up1 + x + 4));
    sums.add(4, tap(dn1 + x - 4), tap(dn1 + x - 2));
    sums.add(5, tap(dn1 + x), tap(dn1 + x + 4));
    sums.add(6, tap(up4 + x - 2), tap(up4 + x + 2));
    sums.add(7, tap(dn4 + x - 2), tap(dn4 + x + 2));
    return sums.template result<false>();
  }

  // The border frame's filtered bytes for the centres at x of rows[0], every
  // tap column displaced by s; rows as kqLumaNrBorderRun_c takes them.
  // Fourteen taps and the centre make fifteen values: the sixteenth,
  // c + 128 (mod 256), lies 128 from its centre and so weighs nothing.
  template <class Tap>
  __attribute__((always_inline)) static R borderBlocks(const uint8_t* const* rows, int32_t x,
                                                       int32_t s, Tap tap) {
    const uint8_t* r0 = rows[0] + x + s;
    const uint8_t* um2 = rows[1] + x + s;
    const uint8_t* dp2 = rows[2] + x + s;
    const uint8_t* um4 = rows[3] + x + s;
    const uint8_t* dp4 = rows[4] + x + s;
    const R c = tap(rows[0] + x);
    Sums sums(c);
    sums.add(0, c, tap(r0 - 6));
    sums.add(1, tap(r0 - 1), tap(r0 + 1));
    sums.add(2, tap(r0 + 6), tap(um2 - 4));
    sums.add(3, tap(um2), tap(um2 + 4));
    sums.add(4, tap(dp2 - 4), tap(dp2));
    sums.add(5, tap(dp2 + 4), tap(um4 - 2));
    sums.add(6, tap(um4 + 2), tap(dp4 - 2));
    sums.add(7, tap(dp4 + 2), V::add8(c, V::set8(-128)));
    return sums.template result<true>();
  }
};
