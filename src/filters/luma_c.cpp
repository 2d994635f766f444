// luma_c.cpp - scalar reference kernels of the luma filters: the oracle that
// every vector version must match byte for byte.
#include "filters/luma_dsp.h"
#include "filters/recip_estimate.h"

namespace {

// Range weight 30 (-) |p - c| on unsigned bytes.
inline uint32_t rangeWeight(uint32_t p, uint32_t c) {
  const uint32_t d = p > c ? p - c : c - p;
  return d >= 30 ? 0u : 30u - d;
}

inline int32_t clampCol(int32_t x, int32_t width) { return x < 0 ? 0 : x >= width ? width - 1 : x; }

}  // namespace

void kqLumaNrRow_c(uint8_t* dst, const uint8_t* src, ptrdiff_t stride, int32_t width) {
  const int32_t blocks = (width - 16) / 16;
  if (blocks < 1) return;
  const float* recip = kqRecipEstimateTable();
  const uint8_t* up4 = src - 4 * stride;
  const uint8_t* up1 = src - stride;
  const uint8_t* dn1 = src + stride;
  const uint8_t* dn4 = src + 4 * stride;
  const int32_t xEnd = 6 + 16 * blocks;
  for (int32_t x = 6; x < xEnd; ++x) {
    const uint32_t c = src[x];
    const uint32_t taps[15] = {src[x - 6], src[x - 1], src[x + 1], src[x + 6],
                               up1[x - 4], up1[x],     up1[x + 4],
                               dn1[x - 4], dn1[x - 2], dn1[x],     dn1[x + 4],
                               up4[x - 2], up4[x + 2], dn4[x - 2], dn4[x + 2]};
    // Exact integer sums: N <= 16 * 30 * 255, D in 30..480.
    uint32_t n = 30u * c, d = 30u;
    for (uint32_t p : taps) {
      const uint32_t w = rangeWeight(p, c);
      n += w * p;
      d += w;
    }
    // One single-precision product with the estimate, clamped, truncated.
    float v = float(n) * recip[d];
    if (v > 255.0f) v = 255.0f;
    dst[x] = uint8_t(int32_t(v));
  }
}

void kqLumaNrBlendRow_c(uint8_t* dst, const uint8_t* src, ptrdiff_t stride, int32_t blocks,
                        int32_t weight) {
  if (blocks < 1) return;
  // A plane width whose interior is exactly these blocks.
  kqLumaNrRow_c(dst, src, stride, 16 * blocks + 16);
  for (int32_t x = 6; x < 6 + 16 * blocks; ++x)
    dst[x] = kqLumaBlendPixel(dst[x], src[x], uint32_t(weight));
}

namespace {

// The border kernel's value for the centre c: rows are the centre row and
// the rows y - 2, y + 2, y - 4, y + 4, col(dx) the column of the tap dx
// away from the displaced centre column. Exact float division; the
// quotient lies in 0..255.
template <class Col>
inline uint8_t borderValue(const uint8_t* const* rows, uint32_t c, Col col) {
  const uint8_t *r0 = rows[0], *rm2 = rows[1], *rp2 = rows[2], *rm4 = rows[3], *rp4 = rows[4];
  // clang-format off
  const uint32_t taps[14] = {r0[col(-6)],  r0[col(-1)],  r0[col(1)],   r0[col(6)],
                             rm2[col(-4)], rm2[col(0)],  rm2[col(4)],
                             rp2[col(-4)], rp2[col(0)],  rp2[col(4)],
                             rm4[col(-2)], rm4[col(2)],  rp4[col(-2)], rp4[col(2)]};
  // clang-format on
  uint32_t n = 30u * c, d = 30u;
  for (uint32_t p : taps) {
    const uint32_t w = rangeWeight(p, c);
    n += w * p;
    d += w;
  }
  return uint8_t(uint32_t(float(n) / float(d)));
}

// One row of the border kernel. Without kClamp the tap columns are used as
// they are, which is exact for widths of 18 or more: the shift keeps every
// tap inside [0, width - 1] there (+6 only for x < 6, -6 / -12 only from
// x = width - 6 or for strips starting at 7 or beyond, i.e. x >= 22).
template <bool kClamp>
void borderRow(const uint8_t* const* rows, uint8_t* out, int32_t width, int32_t x0, int32_t x1) {
  int32_t s = x0 < 7 ? 6 : -6;
  for (int32_t x = x0; x < x1; ++x) {
    if (x == 6) s -= 6;
    if (x == width - 6) s -= 6;
    const int32_t b = x + s;
    out[x] = borderValue(rows, rows[0][x], [&](int32_t dx) {
      return kClamp ? clampCol(b + dx, width) : b + dx;
    });
  }
}

}  // namespace

void kqLumaNrBorderRun_c(uint8_t* dst, const uint8_t* const* rows, int32_t x, int32_t count,
                         int32_t s) {
  for (int32_t i = x; i < x + count; ++i)
    dst[i] = borderValue(rows, rows[0][i], [&](int32_t dx) { return i + s + dx; });
}

void kqLumaNrBorder_c(const uint8_t* src, uint8_t* dst, int32_t width, int32_t height,
                      int32_t x0, int32_t x1, int32_t y0, int32_t y1) {
  if (x0 < 0) x0 = 0;
  if (y0 < 0) y0 = 0;
  if (x1 > width) x1 = width;
  if (y1 > height) y1 = height;
  if (x0 >= x1 || y0 >= y1) return;
  const size_t w = size_t(width);
  auto row = [&](int32_t y) {
    return src + size_t(y < 0 ? 0 : y > height - 1 ? height - 1 : y) * w;
  };
  for (int32_t y = y0; y < y1; ++y) {
    const uint8_t* rows[5] = {row(y), row(y - 2), row(y + 2), row(y - 4), row(y + 4)};
    uint8_t* out = dst + size_t(y) * w;
    if (width >= 18)
      borderRow<false>(rows, out, width, x0, x1);
    else
      borderRow<true>(rows, out, width, x0, x1);
  }
}

void kqLumaBlendRow_c(uint8_t* dst, const uint8_t* orig, int32_t width, int32_t weight) {
  const int32_t n = width & ~7;
  for (int32_t x = 0; x < n; ++x) dst[x] = kqLumaBlendPixel(dst[x], orig[x], uint32_t(weight));
}

void kqLumaBlendRefRow_c(uint8_t* dst, const uint8_t* orig, const uint8_t* ref, int32_t width,
                         int32_t weight, int32_t scale) {
  const int32_t n = width & ~7;
  const int32_t shift = scale == 4 ? 2 : scale == 2 ? 1 : 0;
  for (int32_t x = 0; x < n; ++x) {
    // 13 * r + weight in a 16-bit lane, then an unsigned min with 128.
    const uint16_t t = uint16_t(13u * ref[x >> shift] + uint32_t(weight));
    const uint32_t w = t < 128 ? t : 128u;
    dst[x] = kqLumaBlendPixel(dst[x], orig[x], w);
  }
}

void kqRecipEstimate_c(const float* src, float* dst, int32_t count) {
  for (int32_t i = 0; i < count; ++i) dst[i] = kqRecipEstimate(src[i]);
}

void kqSharpenRow_c(uint8_t* dst, const uint8_t* const* rows, int32_t width,
                    const KQSharpenParams* p) {
  const int32_t nv = width & ~7;
  const uint8_t* c = rows[2];
  if (nv > 0) {
    // The vertical blur V is computed per chunk of columns into a stack
    // line with two columns of margin on each side (any width fits). vAt
    // applies the edge repeats: V(-1) = V(-2) = V(0), V(nv) = V(nv + 1) =
    // V(nv - 1).
    constexpr int32_t kChunk = 1024;
    uint8_t v[kChunk + 4];
    auto vAt = [&](int32_t x) -> int32_t {
      if (x < 0) x = 0;
      if (x > nv - 1) x = nv - 1;
      const int32_t s = p->wOuter * (rows[0][x] + rows[4][x]) + p->wInner * (rows[1][x] + rows[3][x]) +
                        p->wCentre * rows[2][x];
      const int32_t r = (s + 64) >> 7;  // weights sum to 128: rounding Q7 narrow
      return r > 255 ? 255 : r;         // (vqrshrn saturates; never reached here)
    };
    for (int32_t x0 = 0; x0 < nv; x0 += kChunk) {
      const int32_t x1 = x0 + kChunk < nv ? x0 + kChunk : nv;
      for (int32_t x = x0 - 2; x < x1 + 2; ++x) v[x - x0 + 2] = uint8_t(vAt(x));
      for (int32_t x = x0; x < x1; ++x) {
        const uint8_t* q = &v[x - x0 + 2];
        // 16-bit horizontal sum, at most 128 * 255.
        const int32_t h = p->wOuter * (q[-2] + q[2]) + p->wInner * (q[-1] + q[1]) + p->wCentre * q[0];
        dst[x] = kqSharpenRound(kqSharpenResponse(c[x], h, p->gain, p->threshold));
      }
    }
  }
  for (int32_t x = nv; x < width; ++x) dst[x] = kqSharpenTailPixel(c, x, p);
}

void kqSharpenRow7_c(uint8_t* dst, const uint8_t* const* rows, int32_t width,
                     const KQSharpenParams* p) {
  static const int32_t kW[7] = {16, 16, 20, 24, 20, 16, 16};
  const int32_t nv = width & ~7;
  const uint8_t* c = rows[3];
  auto vAt = [&](int32_t x) -> int32_t {
    if (x < 0) x = 0;
    if (x > nv - 1) x = nv - 1;
    int32_t s = 64;
    for (int32_t k = 0; k < 7; ++k) s += kW[k] * rows[k][x];
    const int32_t r = s >> 7;
    return r > 255 ? 255 : r;
  };
  for (int32_t x = 0; x < nv; ++x) {
    int32_t h = 0;
    for (int32_t k = 0; k < 7; ++k) h += kW[k] * vAt(x + k - 3);
    dst[x] = kqSharpenRound(kqSharpenResponse(c[x], h, p->gain, p->threshold));
  }
  for (int32_t x = nv; x < width; ++x) {
    auto at = [&](int32_t k) { return int32_t(c[x - k < 0 ? 0 : x - k]); };
    const int32_t h = 24 * at(0) + 40 * at(1) + 32 * at(2) + 32 * at(3);
    const int32_t r = kqSharpenResponse(c[x], h, p->gain, p->threshold) >> 2;
    dst[x] = uint8_t(r < 0 ? 0 : r > 255 ? 255 : r);
  }
}
