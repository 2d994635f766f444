// warp_dispatch.cpp - the warp kernel family: dispatch by image count,
// layout and sampler, and the tile kernels that prepare each output row for
// the row kernels of warp_dsp.h.
#include "warp/warp_dispatch.h"

#include <cstddef>
#include <cstring>
#include <utility>
#include <vector>

namespace {

// Family layout: entries per group in the order layoutCode 1, 3, 0, other;
// kernels per entry in the order (lumaSelect, planeValueAIsZero) = (1, 0),
// (1, 1), (0, 0), (0, 1).
constexpr int kLayouts = 4;
constexpr int kVariants = 4;

int layoutEntry(int32_t layoutCode) {
  switch (layoutCode) {
    case 1:
      return 0;
    case 3:
      return 1;
    case 0:
      return 2;
    default:
      return 3;
  }
}

int variantIndex(int32_t lumaSelect, int32_t planeValueAIsZero) {
  if (planeValueAIsZero != 0 && planeValueAIsZero != 1) return -1;
  if (lumaSelect == 1) return planeValueAIsZero;
  if (lumaSelect == 0) return 2 + planeValueAIsZero;
  return -1;
}

// The single-image group. Groups 2..50 hold only no-op kernels.
KQWarpKernelFn* const kSingleImageGroup[kLayouts][kVariants] = {
    {kqWarpKernelNoop, kqWarpLumaKernel, kqWarpKernelNoop, kqWarpChromaKernel},
    {kqWarpKernelNoop, kqWarpKernelNoop, kqWarpKernelNoop, kqWarpKernelNoop},
    {kqWarpKernelNoop, kqWarpKernelNoop, kqWarpKernelNoop, kqWarpKernelNoop},
    {kqWarpKernelNoop, kqWarpKernelNoop, kqWarpKernelNoop, kqWarpKernelNoop},
};

inline float mapX(const Homography& m, float x, float y) {
  return m.h[0] * x + m.h[1] * y + m.h[2];
}
inline float mapY(const Homography& m, float x, float y) {
  return m.h[3] * x + m.h[4] * y + m.h[5];
}

// A source row coordinate clamped to [0, height - 1]; NaN gives 0.
inline float clampRowCoord(float v, int32_t height) {
  if (!(v > 0.0f)) return 0.0f;
  const float last = static_cast<float>(height - 1);
  return v > last ? last : v;
}

inline int32_t rowIndex(float clamped, int32_t height) {
  const int32_t i = static_cast<int32_t>(clamped);  // 0 <= clamped <= height - 1
  return i > height - 1 ? height - 1 : i;
}

// True when two rows read the same source rows at the same positions, so
// that their horizontal pass gives the same values.
inline bool sameSampling(const KQWarpRow& a, const KQWarpRow& b) {
  return a.src0 == b.src0 && a.src1 == b.src1 && a.step == b.step &&
         std::memcmp(&a.x, &b.x, sizeof a.x) == 0 &&
         std::memcmp(&a.blockStep, &b.blockStep, sizeof a.blockStep) == 0;
}

// Block origins (base, phase) of a row, packed as base * 32 + phase (the
// floor of 32 times the clamped start, within +-2^29), into out[0 .. n).
void blockCodes(const KQWarpRow& row, int32_t* out) {
  float p = row.x;
  for (int32_t j = 0, start = 0; start < row.count; ++j, start += 8) {
    int32_t base, phase;
    kqwarp::blockOriginFast(p, &base, &phase);
    out[j] = base * 32 + phase;
    p = p + row.blockStep;
  }
}

// Block chains of a tile's rows. Rows whose floats differ (the bilinear
// blend of the corner matrices rounds differently from row to row) can still
// place every block at the same source column and phase; with the same
// source rows and step, every row kernel then gives them the same
// horizontal values. Each distinct (x, 8*D, S) is walked once: its codes are
// compared with the chains already seen (same S), and rows that land on the
// same chain share its codes and the kernel's plan built from them. In an
// enlargement with uniform tiles a tile has one or a few chains, so no row
// walks its chain again and the kernels' per-column set-up is done once.
class ChainCache {
 public:
  static constexpr int32_t kMaxChains = 8;
  static constexpr int32_t kMaxKeys = 64;

  explicit ChainCache(int32_t count) : count_(count), scratch_(size_t((count + 7) / 8)) {
    chains_.reserve(kMaxChains);
  }

  // Index of the row's chain, or -1 when the cache is full and the row's
  // codes match none of its chains.
  int32_t find(const KQWarpRow& row) {
    uint32_t xb, sb;
    std::memcpy(&xb, &row.x, sizeof xb);
    std::memcpy(&sb, &row.blockStep, sizeof sb);
    for (const Key& k : keys_)
      if (k.xBits == xb && k.stepBits == sb && k.step == row.step) return k.chain;
    blockCodes(row, scratch_.data());
    int32_t found = -1;
    for (size_t c = 0; c < chains_.size() && found < 0; ++c)
      if (chains_[c].step == row.step && chains_[c].codes == scratch_) found = int32_t(c);
    if (found < 0 && int32_t(chains_.size()) < kMaxChains) {
      Chain ch;
      ch.step = row.step;
      ch.codes = scratch_;
      ch.plan.assign(kqWarpPlanBytes(count_), 0);
      chains_.push_back(std::move(ch));
      found = int32_t(chains_.size()) - 1;
    }
    if (found >= 0 && int32_t(keys_.size()) < kMaxKeys) keys_.push_back({xb, sb, row.step, found});
    return found;
  }

  // Hands chain c's codes and plan to the row kernel.
  void attach(int32_t c, KQWarpRow* row) {
    if (c < 0) return;
    Chain& ch = chains_[size_t(c)];
    row->codes = ch.codes.data();
    row->plan = ch.plan.data();
    row->planReady = &ch.planReady;
  }

 private:
  struct Key {
    uint32_t xBits, stepBits;
    int32_t step;
    int32_t chain;
  };
  struct Chain {
    int32_t step = 0;
    std::vector<int32_t> codes;
    std::vector<uint8_t> plan;
    int32_t planReady = 0;
  };
  int32_t count_;
  std::vector<int32_t> scratch_;
  std::vector<Key> keys_;
  std::vector<Chain> chains_;  // reserved: never moves while rows point into it
};

// Steps beyond +-8192 source pixels per output pixel are clamped, so that
// S = D * 2048 stays within +-2^24 and 8 * D is finite.
constexpr float kMaxStep = 8192.0f;

// Left end (lx, ly) and per-pixel step d of output row y: the corner
// matrices blended by the row's position t in the rectangle. The step is
// divided in double and rounded to float; a single column (n = 0) has no
// step, its pixel depends on L alone.
inline void rowGeometry(const Homography& upLeft, const Homography& left, const Homography& up,
                        const Homography& own, int32_t y, int32_t y0, float tDen, float fx0,
                        float fx1, int32_t n, float* lxOut, float* lyOut, float* dOut) {
  const float t = static_cast<float>(y - y0) / tDen;
  const float u = 1.0f - t;
  const float fy = static_cast<float>(y);
  const float lx = u * mapX(upLeft, fx0, fy) + t * mapX(left, fx0, fy);
  const float ly = u * mapY(upLeft, fx0, fy) + t * mapY(left, fx0, fy);
  const float rx = u * mapX(up, fx1, fy) + t * mapX(own, fx1, fy);
  float d = 0.0f;
  if (n > 0) d = static_cast<float>((double(rx) - double(lx)) / double(n));
  if (!(d == d)) d = 0.0f;
  if (d > kMaxStep) d = kMaxStep;
  if (d < -kMaxStep) d = -kMaxStep;
  *lxOut = lx;
  *lyOut = ly;
  *dOut = d;
}

void warpTile(const KQWarpDsp* dsp, bool luma, KQImage8* list, const int32_t* rect,
              const int32_t* last, const Homography* inverseTile, int32_t cols, int32_t tx,
              int32_t ty, const KQWarpChromaPairs* pairs) {
  if (dsp == nullptr || list == nullptr || rect == nullptr || inverseTile == nullptr) return;
  const KQImage8& src = list[0];
  const KQImage8& dst = list[1];
  if (src.data == nullptr || src.width < 1 || src.height < 1) return;
  if (dst.data == nullptr || dst.width < 1 || dst.height < 1) return;
  // Rows are laid out over x0..x1 and blended over y0..y1; only columns up
  // to lastX and rows up to lastY are written.
  const int32_t x0 = rect[0] > 0 ? rect[0] : 0;
  const int32_t y0 = rect[1] > 0 ? rect[1] : 0;
  const int32_t x1 = rect[2] < dst.width - 1 ? rect[2] : dst.width - 1;
  const int32_t y1 = rect[3] < dst.height - 1 ? rect[3] : dst.height - 1;
  if (x1 < x0 || y1 < y0) return;
  int32_t lastX = x1, lastY = y1;
  if (last != nullptr) {
    lastX = last[0] < lastX ? last[0] : lastX;
    lastY = last[1] < lastY ? last[1] : lastY;
  }
  if (lastX < x0 || lastY < y0) return;

  // The tile's own matrix anchors the bottom-right of the rectangle, its
  // left, upper and upper-left neighbours the left and top edges.
  const Homography& own = *inverseTile;
  const Homography& left = tx > 0 ? inverseTile[-1] : own;
  const Homography& up = ty > 0 ? *(inverseTile - cols) : own;
  const Homography& upLeft = ty > 0 ? *(&left - cols) : left;

  const float tDen = y1 == y0 ? 1.0f : static_cast<float>(y1 - y0);
  const float fx0 = static_cast<float>(x0), fx1 = static_cast<float>(x1);
  const int32_t srcW = src.width, srcH = src.height;

  const int32_t count = lastX - x0 + 1;
  const ptrdiff_t stride = dst.width;
  // Interleaved chroma: U and V rows are sampled into this tile's two row
  // buffers and merged into the destination row.
  const ptrdiff_t pitch = pairs != nullptr ? ptrdiff_t(pairs->pitch) : stride;
  uint8_t* rowU = nullptr;
  uint8_t* rowV = nullptr;
  if (pairs != nullptr) {
    rowU = pairs->rowBuffers + (size_t(ty) * size_t(cols) + size_t(tx)) * 2 * size_t(dst.width);
    rowV = rowU + dst.width;
  }
  // Luma rows that repeat the sampling of the held row (below) join its
  // group and are handed to the row kernel together; a chroma row that
  // repeats the last one computed is a copy of it. The kernels get the
  // chain's codes and plan. The next row is set up in the other slot and
  // the two swap when it takes over, so no row record is copied (copying
  // one just written field by field stalls on store forwarding).
  KQWarpRow slots[2];
  KQWarpRow* held = &slots[0];
  KQWarpRow* next = &slots[1];
  held->rows = 0;
  int32_t heldChain = -1;
  uint8_t* heldDst = nullptr;
  ChainCache chains(count);
  // Each row's left end and step are worked out for a batch of rows in a
  // loop of its own: the rows are independent there, so their divisions and
  // conversions overlap instead of waiting on the grouping below, which
  // branches on every row.
  constexpr int32_t kBatch = 32;
  float batchX[kBatch], batchY[kBatch], batchD[kBatch];
  for (int32_t y = y0; y <= lastY; ++y) {
    const int32_t k = (y - y0) % kBatch;
    if (k == 0) {
      const int32_t n = lastY - y + 1 < kBatch ? lastY - y + 1 : kBatch;
      for (int32_t j = 0; j < n; ++j)
        rowGeometry(upLeft, left, up, own, y + j, y0, tDen, fx0, fx1, x1 - x0, &batchX[j],
                    &batchY[j], &batchD[j]);
    }
    const float lx = batchX[k], ly = batchY[k], d = batchD[k];

    KQWarpRow& row = *next;
    row.srcWidth = srcW;
    row.count = count;
    row.rows = 1;
    row.step = static_cast<int32_t>(d * 2048.0f);
    row.blockStep = d * 8.0f;
    row.codes = nullptr;
    row.plan = nullptr;
    row.planReady = nullptr;
    uint8_t* out = pairs != nullptr ? pairs->dst + ptrdiff_t(y) * pitch + 2 * ptrdiff_t(x0)
                                    : dst.data + ptrdiff_t(y) * stride + x0;
    if (luma) {
      // Bilinear: rows iy and iy + 1 weighted by the 1/16-quantised fraction.
      const float cy = clampRowCoord(ly, srcH);
      const int32_t iy = rowIndex(cy, srcH);
      const int32_t iy1 = iy + 1 < srcH ? iy + 1 : srcH - 1;
      row.src0 = src.data + ptrdiff_t(iy) * srcW;
      row.src1 = src.data + ptrdiff_t(iy1) * srcW;
      const int32_t w1 = static_cast<int32_t>((cy - static_cast<float>(iy)) * 16.0f);
      row.w1[0] = w1 > 15 ? 15 : w1 < 0 ? 0 : w1;  // bounds matter only beyond 2^24 rows
      row.x = lx;
    } else {
      // Nearest sample: half a pixel added to both coordinates, then
      // truncated. The step was taken before, so the half moves the whole
      // row without changing its step.
      const int32_t iy = rowIndex(clampRowCoord(ly + 0.5f, srcH), srcH);
      row.src0 = src.data + ptrdiff_t(iy) * srcW;
      row.src1 = row.src0;
      row.w1[0] = 0;
      row.x = lx + 0.5f;
    }
    // The row repeats the held row's sampling when it reads the same source
    // rows with the same floats (no chain look-up needed), or on the same
    // chain: floats whose blocks all land on the same columns and phases.
    const bool sameSource = held->rows > 0 && (!luma || held->rows < kKqWarpMaxRows) &&
                            held->src0 == row.src0 && held->src1 == row.src1;
    int32_t rowChain = -1;
    bool repeats = sameSource && sameSampling(*held, row);
    if (!repeats) {
      rowChain = chains.find(row);
      repeats = sameSource && rowChain >= 0 && rowChain == heldChain;
    }
    if (luma) {
      if (repeats) {
        held->w1[held->rows++] = row.w1[0];
        continue;
      }
      if (held->rows > 0) dsp->bilinearRow(heldDst, stride, held);
      chains.attach(rowChain, &row);
      heldDst = out;
    } else {
      if (repeats) {
        std::memcpy(out, out - pitch, size_t(count) * (pairs != nullptr ? 2 : 1));
        continue;
      }
      chains.attach(rowChain, &row);
      if (pairs != nullptr) {
        const uint8_t* uRow = row.src0;
        dsp->nearestRow(rowU, &row);
        row.src0 = row.src1 = pairs->srcV + (uRow - src.data);
        dsp->nearestRow(rowV, &row);
        row.src0 = row.src1 = uRow;  // later rows compare their source with this one
        if (pairs->vFirst) {
          pairs->mergeRow(out, rowV, rowU, count);
        } else {
          pairs->mergeRow(out, rowU, rowV, count);
        }
      } else {
        dsp->nearestRow(out, &row);
      }
    }
    heldChain = rowChain;
    std::swap(held, next);
  }
  if (luma && held->rows > 0) dsp->bilinearRow(heldDst, stride, held);
}

}  // namespace

void kqWarpLumaKernel(const KQWarpDsp* dsp, KQImage8* planeList, void*, const int32_t* rect,
                      const int32_t* last, const Homography* inverseTile, const Homography*,
                      int32_t cols, int32_t, int32_t tx, int32_t ty, int32_t) {
  warpTile(dsp, true, planeList, rect, last, inverseTile, cols, tx, ty, nullptr);
}

void kqWarpChromaKernel(const KQWarpDsp* dsp, KQImage8* planeList, void* extra,
                        const int32_t* rect, const int32_t* last, const Homography* inverseTile,
                        const Homography*, int32_t cols, int32_t, int32_t tx, int32_t ty, int32_t) {
  warpTile(dsp, false, planeList, rect, last, inverseTile, cols, tx, ty,
           static_cast<const KQWarpChromaPairs*>(extra));
}

void kqWarpKernelNoop(const KQWarpDsp*, KQImage8*, void*, const int32_t*, const int32_t*,
                      const Homography*, const Homography*, int32_t, int32_t, int32_t, int32_t,
                      int32_t) {}

KQWarpKernelFn* kqWarpFamilyKernel(int32_t n, int32_t layoutCode, int32_t lumaSelect,
                                   int32_t planeValueAIsZero) {
  if (n < 1 || n > kKqWarpMaxImages) return nullptr;
  const int variant = variantIndex(lumaSelect, planeValueAIsZero);
  if (variant < 0) return nullptr;
  if (n != 1) return kqWarpKernelNoop;
  return kSingleImageGroup[layoutEntry(layoutCode)][variant];
}

void warpDispatchDsp(const KQWarpDsp* dsp, int32_t n, int32_t lumaSelect, int32_t layoutCode,
                     int32_t planeValueAIsZero, KQImage8* planes, KQImage8* secondPlanes,
                     void* extra, const int32_t* rect, const int32_t* last,
                     const Homography* inverseTile, const Homography* forwardTile, int32_t cols,
                     int32_t rows, int32_t tx, int32_t ty, int32_t planeValueA,
                     int32_t planeValueB) {
  KQWarpKernelFn* kernel = kqWarpFamilyKernel(n, layoutCode, lumaSelect, planeValueAIsZero);
  if (kernel == nullptr) return;
  kernel(dsp, planes, extra, rect, last, inverseTile, forwardTile, cols, rows, tx, ty,
         planeValueA);
  if (secondPlanes != nullptr)
    kernel(dsp, secondPlanes, extra, rect, last, inverseTile, forwardTile, cols, rows, tx, ty,
           planeValueB);
}

void warpDispatch(int32_t n, int32_t lumaSelect, int32_t layoutCode, int32_t planeValueAIsZero,
                  KQImage8* planes, KQImage8* secondPlanes, void* extra, const int32_t* rect,
                  const Homography* inverseTile, const Homography* forwardTile, int32_t cols,
                  int32_t rows, int32_t tx, int32_t ty, int32_t planeValueA, int32_t planeValueB) {
  warpDispatchDsp(kqWarpDspGet(), n, lumaSelect, layoutCode, planeValueAIsZero, planes,
                  secondPlanes, extra, rect, nullptr, inverseTile, forwardTile, cols, rows, tx, ty,
                  planeValueA, planeValueB);
}
