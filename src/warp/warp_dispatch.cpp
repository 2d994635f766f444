// warp_dispatch.cpp - the warp kernel family: dispatch by image count,
// layout and sampler, and the tile kernels that prepare each output row for
// the row kernels of warp_dsp.h.
#include "warp/warp_dispatch.h"

#include <cstddef>
#include <cstring>
#include <memory>
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

// What places a row's blocks, given its source rows: the bits of its start
// and of its block step, and its step. Two rows with the same source rows
// and the same key give the same values in every row kernel.
struct SamplingKey {
  uint32_t xBits = 0, stepBits = 0;
  int32_t step = 0;

  SamplingKey() = default;
  SamplingKey(float x, float blockStep, int32_t s) : step(s) {
    std::memcpy(&xBits, &x, sizeof xBits);
    std::memcpy(&stepBits, &blockStep, sizeof stepBits);
  }
  bool operator==(const SamplingKey& o) const {
    return xBits == o.xBits && stepBits == o.stepBits && step == o.step;
  }
};

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

  // Empties the cache for rows of count pixels.
  void reset(int32_t count) {
    count_ = count;
    scratch_.assign(size_t((count + 7) / 8), 0);
    keys_.clear();
    chains_.clear();
    chains_.reserve(kMaxChains);
  }

  // Index of the chain of the row, whose sampling key is `key`, or -1 when
  // the cache is full and the row's codes match none of its chains.
  int32_t find(const KQWarpRow& row, const SamplingKey& key) {
    for (const Key& k : keys_)
      if (k.key == key) return k.chain;
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
    if (found >= 0 && int32_t(keys_.size()) < kMaxKeys) keys_.push_back({key, found});
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
    SamplingKey key;
    int32_t chain;
  };
  struct Chain {
    int32_t step = 0;
    std::vector<int32_t> codes;
    std::vector<uint8_t> plan;
    int32_t planReady = 0;
  };
  int32_t count_ = 0;
  std::vector<int32_t> scratch_;
  std::vector<Key> keys_;
  std::vector<Chain> chains_;  // reserved: never moves while rows point into it
};

// Output rows a tile asks for ahead of writing them, and the cache line
// size the requests step by (64 bytes on the x86 and ARM cores we run on;
// a wrong guess only costs requests).
constexpr int32_t kWriteAhead = 8;
constexpr int32_t kReadAhead = 2;
constexpr ptrdiff_t kLine = 64;

// Steps beyond +-8192 source pixels per output pixel are clamped, so that
// S = D * 2048 stays within +-2^24 and 8 * D is finite.
constexpr float kMaxStep = 8192.0f;

// Left ends (lx, ly) and per-pixel steps d of output rows y .. y + n - 1:
// the corner matrices blended by each row's position t in the rectangle.
// The step is divided in double and rounded to float; a single column
// (span 0) has no step, its pixel depends on L alone. The matrices' terms
// are copied to locals and the rows are independent, so the compiler runs
// the loop over vectors; every operation is the same IEEE one in the same
// order as for a single row.
void rowGeometry(const Homography& upLeft, const Homography& left, const Homography& up,
                 const Homography& own, int32_t y, int32_t n, int32_t y0, float tDen, float fx0,
                 float fx1, int32_t span, float* lxOut, float* lyOut, float* dOut) {
  const float a0 = upLeft.h[0], a1 = upLeft.h[1], a2 = upLeft.h[2];
  const float a3 = upLeft.h[3], a4 = upLeft.h[4], a5 = upLeft.h[5];
  const float b0 = left.h[0], b1 = left.h[1], b2 = left.h[2];
  const float b3 = left.h[3], b4 = left.h[4], b5 = left.h[5];
  const float c0 = up.h[0], c1 = up.h[1], c2 = up.h[2];
  const float e0 = own.h[0], e1 = own.h[1], e2 = own.h[2];
  const double columns = double(span);
  const bool hasStep = span > 0;
  for (int32_t j = 0; j < n; ++j) {
    const float t = static_cast<float>(y + j - y0) / tDen;
    const float u = 1.0f - t;
    const float fy = static_cast<float>(y + j);
    const float lx = u * (a0 * fx0 + a1 * fy + a2) + t * (b0 * fx0 + b1 * fy + b2);
    const float ly = u * (a3 * fx0 + a4 * fy + a5) + t * (b3 * fx0 + b4 * fy + b5);
    const float rx = u * (c0 * fx1 + c1 * fy + c2) + t * (e0 * fx1 + e1 * fy + e2);
    float d = static_cast<float>((double(rx) - double(lx)) / columns);
    d = hasStep && d == d ? d : 0.0f;
    d = d > kMaxStep ? kMaxStep : d;
    d = d < -kMaxStep ? -kMaxStep : d;
    lxOut[j] = lx;
    lyOut[j] = ly;
    dOut[j] = d;
  }
}

// One tile's rows, taken one output row at a time, so that the tiles of a
// tile row can write the destination row by row across all of them (long
// runs of stores, which the hardware streams far better than a tile's
// short ones) as well as tile by tile. A tile's bytes do not depend on the
// order: its rows read only the source and its own earlier rows.
class TileRows {
 public:
  // srcStride: bytes from one source row to the next (the rows of pairs when
  // pairs is not null). False when the tile writes nothing.
  bool start(const KQWarpDsp* dsp, bool luma, const KQImage8* list, ptrdiff_t srcStride,
             const int32_t* rect, const int32_t* last, const Homography* inverseTile, int32_t cols,
             int32_t tx, int32_t ty, const KQWarpChromaPairs* pairs) {
    if (dsp == nullptr || list == nullptr || rect == nullptr || inverseTile == nullptr)
      return false;
    const KQImage8& src = list[0];
    const KQImage8& dst = list[1];
    if (src.data == nullptr || src.width < 1 || src.height < 1) return false;
    if (dst.data == nullptr || dst.width < 1 || dst.height < 1) return false;
    // Rows are laid out over x0..x1 and blended over y0..y1; only columns up
    // to lastX and rows up to lastY are written.
    x0_ = rect[0] > 0 ? rect[0] : 0;
    y0_ = rect[1] > 0 ? rect[1] : 0;
    const int32_t x1 = rect[2] < dst.width - 1 ? rect[2] : dst.width - 1;
    const int32_t y1 = rect[3] < dst.height - 1 ? rect[3] : dst.height - 1;
    if (x1 < x0_ || y1 < y0_) return false;
    int32_t lastX = x1;
    lastY_ = y1;
    if (last != nullptr) {
      lastX = last[0] < lastX ? last[0] : lastX;
      lastY_ = last[1] < lastY_ ? last[1] : lastY_;
    }
    if (lastX < x0_ || lastY_ < y0_) return false;
    firstY_ = y0_;
    batchStart_ = batchEnd_ = y0_;

    // The tile's own matrix anchors the bottom-right of the rectangle, its
    // left, upper and upper-left neighbours the left and top edges.
    own_ = inverseTile;
    left_ = tx > 0 ? inverseTile - 1 : own_;
    up_ = ty > 0 ? inverseTile - cols : own_;
    upLeft_ = ty > 0 ? left_ - cols : left_;
    tDen_ = y1 == y0_ ? 1.0f : static_cast<float>(y1 - y0_);
    fx0_ = static_cast<float>(x0_);
    fx1_ = static_cast<float>(x1);
    span_ = x1 - x0_;

    dsp_ = dsp;
    luma_ = luma;
    srcW_ = src.width;
    srcH_ = src.height;
    count_ = lastX - x0_ + 1;
    stride_ = dst.width;
    // Interleaved chroma: rows of pairs in, rows of pairs out.
    pairs_ = pairs;
    pitch_ = pairs != nullptr ? pairs->pitch : stride_;
    rowBytes_ = size_t(count_) * (pairs != nullptr ? 2 : 1);
    srcData_ = pairs != nullptr ? pairs->src : src.data;
    srcStride_ = srcStride;
    dstData_ = pairs != nullptr ? pairs->dst + 2 * ptrdiff_t(x0_) : dst.data + x0_;
    swap_ = pairs != nullptr && pairs->swap ? 1 : 0;
    held_ = &slots_[0];
    next_ = &slots_[1];
    held_->rows = 0;
    heldChain_ = -1;
    heldDst_ = nullptr;
    chains_.reset(count_);
    return true;
  }

  int32_t firstRow() const { return firstY_; }
  int32_t lastRow() const { return lastY_; }

  // Keeps only rows from..to of the tile (before its first row is taken).
  // A row's bytes do not depend on where the run starts: a run's first row
  // is always computed, never copied or grouped with a row before it.
  void limitRows(int32_t from, int32_t to) {
    firstY_ = from > firstY_ ? from : firstY_;
    lastY_ = to < lastY_ ? to : lastY_;
    batchStart_ = batchEnd_ = firstY_;
  }

  // Output row y; rows come in order from firstRow() to lastRow().
  void row(int32_t y) {
    if (y >= batchEnd_) {
      const int32_t n = lastY_ - y + 1 < kBatch ? lastY_ - y + 1 : kBatch;
      rowGeometry(*upLeft_, *left_, *up_, *own_, y, n, y0_, tDen_, fx0_, fx1_, span_, batchX_,
                  batchY_, batchD_);
      batchStart_ = y;
      batchEnd_ = y + n;
    }
    const int32_t k = y - batchStart_;
    const float lx = batchX_[k], ly = batchY_[k], d = batchD_[k];

    // Nearest sample: half a pixel added to both coordinates, then
    // truncated. The step was taken before, so the half moves the whole row
    // without changing its step. The key is made from these values rather
    // than read back from the record: a load spanning two fields just
    // stored one by one would wait for both stores to complete.
    const float x = luma_ ? lx : lx + 0.5f;
    const int32_t step = static_cast<int32_t>(d * 2048.0f);
    const float blockStep = d * 8.0f;
    const SamplingKey key(x, blockStep, step);

    KQWarpRow& row = *next_;
    row.srcWidth = srcW_;
    row.count = count_;
    row.rows = 1;
    row.step = step;
    row.blockStep = blockStep;
    row.x = x;
    row.codes = nullptr;
    row.plan = nullptr;
    row.planReady = nullptr;
    uint8_t* out = dstData_ + ptrdiff_t(y) * pitch_;
    int32_t sampledRow = 0;  // the nearest sample's source row
    // Ask for the destination row kWriteAhead rows down: a store that
    // misses the cache waits for its line to be read first. The lines go to
    // the second-level cache only: kWriteAhead rows of a wide output held in
    // the first level would push out the source rows the kernels are
    // reading (at 3840x2160 that costs 15-30 % of the warp).
    if (y + kWriteAhead <= lastY_) {
      const uint8_t* ahead = out + kWriteAhead * pitch_;
      for (size_t b = 0; b < rowBytes_; b += kLine) __builtin_prefetch(ahead + b, 1, 2);
    }
    if (luma_) {
      // Bilinear: rows iy and iy + 1 weighted by the 1/16-quantised fraction.
      const float cy = clampRowCoord(ly, srcH_);
      const int32_t iy = rowIndex(cy, srcH_);
      const int32_t iy1 = iy + 1 < srcH_ ? iy + 1 : srcH_ - 1;
      row.src0 = srcData_ + ptrdiff_t(iy) * srcStride_;
      row.src1 = srcData_ + ptrdiff_t(iy1) * srcStride_;
      const int32_t w1 = static_cast<int32_t>((cy - static_cast<float>(iy)) * 16.0f);
      row.w1[0] = w1 > 15 ? 15 : w1 < 0 ? 0 : w1;  // bounds matter only beyond 2^24 rows
    } else {
      const int32_t iy = rowIndex(clampRowCoord(ly + 0.5f, srcH_), srcH_);
      sampledRow = iy;
      row.src0 = srcData_ + ptrdiff_t(iy) * srcStride_;
      row.src1 = row.src0;
      row.w1[0] = 0;
    }
    // The row repeats the held row's sampling when it reads the same source
    // rows with the same floats (no chain look-up needed), or on the same
    // chain: floats whose blocks all land on the same columns and phases.
    const bool sameSource = held_->rows > 0 && (!luma_ || held_->rows < kKqWarpMaxRows) &&
                            held_->src0 == row.src0 && held_->src1 == row.src1;
    int32_t rowChain = -1;
    bool repeats = sameSource && key == heldKey_;
    if (!repeats) {
      rowChain = chains_.find(row, key);
      repeats = sameSource && rowChain >= 0 && rowChain == heldChain_;
    }
    if (luma_) {
      if (repeats) {
        held_->w1[held_->rows++] = row.w1[0];
        return;
      }
      if (held_->rows > 0) dsp_->bilinearRow(heldDst_, stride_, held_);
      chains_.attach(rowChain, &row);
      heldDst_ = out;
    } else {
      if (repeats) {
        std::memcpy(out, out - pitch_, rowBytes_);
        return;
      }
      chains_.attach(rowChain, &row);
      if (pairs_ != nullptr) {
        // Later rows read the source rows below this one: ask for the one
        // kReadAhead rows down over this row's span of pairs.
        const int32_t ahead = sampledRow + kReadAhead;
        if (ahead < srcH_) {
          const float xs = x, xe = x + float(count_) * d;
          int32_t c0 = int32_t(xs < xe ? xs : xe), c1 = int32_t(xs < xe ? xe : xs) + 1;
          c0 = c0 < 0 ? 0 : c0;
          c1 = c1 > srcW_ - 1 ? srcW_ - 1 : c1;
          const uint8_t* r = srcData_ + ptrdiff_t(ahead) * srcStride_;
          for (int32_t c = c0 & ~31; c <= c1; c += 32) __builtin_prefetch(r + 2 * c);
        }
        dsp_->nearestPairRow(out, &row, swap_);
      } else {
        dsp_->nearestRow(out, &row);
      }
    }
    heldChain_ = rowChain;
    heldKey_ = key;
    std::swap(held_, next_);
  }

  // Writes the rows still held; call once after the last row.
  void finish() {
    if (luma_ && held_->rows > 0) dsp_->bilinearRow(heldDst_, stride_, held_);
    held_->rows = 0;
  }

 private:
  // Each row's left end and step are worked out for a batch of rows in a
  // loop of its own: the rows are independent there, so their divisions and
  // conversions overlap instead of waiting on the grouping, which branches
  // on every row.
  static constexpr int32_t kBatch = 32;

  const KQWarpDsp* dsp_ = nullptr;
  bool luma_ = false;
  const Homography* own_ = nullptr;
  const Homography* left_ = nullptr;
  const Homography* up_ = nullptr;
  const Homography* upLeft_ = nullptr;
  int32_t x0_ = 0, y0_ = 0, firstY_ = 0, lastY_ = -1, span_ = 0, count_ = 0, srcW_ = 0, srcH_ = 0;
  int32_t batchStart_ = 0, batchEnd_ = 0;  // rows batchStart_ .. batchEnd_ - 1 are in the batch
  float tDen_ = 1.0f, fx0_ = 0.0f, fx1_ = 0.0f;
  ptrdiff_t stride_ = 0, pitch_ = 0, srcStride_ = 0;
  size_t rowBytes_ = 0;
  const uint8_t* srcData_ = nullptr;
  uint8_t* dstData_ = nullptr;
  const KQWarpChromaPairs* pairs_ = nullptr;
  int32_t swap_ = 0;
  // Luma rows that repeat the sampling of the held row join its group and
  // are handed to the row kernel together; a chroma row that repeats the
  // last one computed is a copy of it. The kernels get the chain's codes
  // and plan. The next row is set up in the other slot and the two swap
  // when it takes over, so no row record is copied (copying one just
  // written field by field stalls on store forwarding).
  KQWarpRow slots_[2];
  KQWarpRow* held_ = nullptr;
  KQWarpRow* next_ = nullptr;
  int32_t heldChain_ = -1;
  SamplingKey heldKey_;
  uint8_t* heldDst_ = nullptr;
  ChainCache chains_;
  float batchX_[kBatch] = {}, batchY_[kBatch] = {}, batchD_[kBatch] = {};
};

// The source row stride a kernel of the family reads with: the luma
// kernel's from its KQWarpSourceRows (packed without one), the chroma
// kernel's from its KQWarpChromaPairs.
ptrdiff_t sourceStride(bool luma, const KQImage8* planeList, const void* extra) {
  const ptrdiff_t width = planeList[0].width;
  if (luma) {
    const auto* rows = static_cast<const KQWarpSourceRows*>(extra);
    return rows != nullptr && rows->stride > width ? rows->stride : width;
  }
  const auto* pairs = static_cast<const KQWarpChromaPairs*>(extra);
  return pairs != nullptr ? pairs->srcPitch : width;
}

void warpTile(const KQWarpDsp* dsp, bool luma, KQImage8* list, void* extra, const int32_t* rect,
              const int32_t* last, const Homography* inverseTile, int32_t cols, int32_t tx,
              int32_t ty) {
  if (list == nullptr) return;
  TileRows tile;
  if (!tile.start(dsp, luma, list, sourceStride(luma, list, extra), rect, last, inverseTile, cols,
                  tx, ty, luma ? nullptr : static_cast<const KQWarpChromaPairs*>(extra)))
    return;
  for (int32_t y = tile.firstRow(); y <= tile.lastRow(); ++y) tile.row(y);
  tile.finish();
}

}  // namespace

void kqWarpLumaKernel(const KQWarpDsp* dsp, KQImage8* planeList, void* extra, const int32_t* rect,
                      const int32_t* last, const Homography* inverseTile, const Homography*,
                      int32_t cols, int32_t, int32_t tx, int32_t ty, int32_t) {
  warpTile(dsp, true, planeList, extra, rect, last, inverseTile, cols, tx, ty);
}

void kqWarpChromaKernel(const KQWarpDsp* dsp, KQImage8* planeList, void* extra, const int32_t* rect,
                        const int32_t* last, const Homography* inverseTile, const Homography*,
                        int32_t cols, int32_t, int32_t tx, int32_t ty, int32_t) {
  warpTile(dsp, false, planeList, extra, rect, last, inverseTile, cols, tx, ty);
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
  kernel(dsp, planes, extra, rect, last, inverseTile, forwardTile, cols, rows, tx, ty, planeValueA);
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

bool warpDispatchTileRowDsp(const KQWarpDsp* dsp, int32_t n, int32_t lumaSelect, int32_t layoutCode,
                            int32_t planeValueAIsZero, KQImage8* planes, KQImage8* secondPlanes,
                            void* extra, const int32_t* rects, const int32_t* lasts,
                            const Homography* inverseTile, int32_t cols, int32_t tx0, int32_t count,
                            int32_t ty, int32_t bandFrom, int32_t bandTo, int32_t bandOf) {
  KQWarpKernelFn* kernel = kqWarpFamilyKernel(n, layoutCode, lumaSelect, planeValueAIsZero);
  if (kernel != kqWarpLumaKernel && kernel != kqWarpChromaKernel) return false;
  if (planes == nullptr || count < 1 || bandOf < 1 || bandFrom < 0 || bandTo > bandOf ||
      bandFrom > bandTo)
    return false;
  const bool luma = kernel == kqWarpLumaKernel;
  const auto* pairs = luma ? nullptr : static_cast<const KQWarpChromaPairs*>(extra);
  KQImage8* lists[2] = {planes, secondPlanes};
  std::unique_ptr<TileRows[]> tiles(new TileRows[2 * size_t(count)]);
  int32_t started = 0, first = 0, last = -1;
  for (KQImage8* list : lists) {
    if (list == nullptr) continue;
    const ptrdiff_t srcStride = sourceStride(luma, list, extra);
    for (int32_t i = 0; i < count; ++i) {
      TileRows& t = tiles[size_t(started)];
      if (!t.start(dsp, luma, list, srcStride, rects + 4 * i, lasts + 2 * i, inverseTile + i, cols,
                   tx0 + i, ty, pairs))
        continue;
      first = started == 0 || t.firstRow() < first ? t.firstRow() : first;
      last = started == 0 || t.lastRow() > last ? t.lastRow() : last;
      ++started;
    }
  }
  if (started == 0) return true;
  // The band: rows first + span * bandFrom / bandOf up to the next band's
  // first row, so that bands 0..1, 1..2, ... of one bandOf cover the rows
  // exactly once.
  const int64_t span = int64_t(last) - first + 1;
  const int32_t bandFirst = first + int32_t(span * bandFrom / bandOf);
  const int32_t bandLast = first + int32_t(span * bandTo / bandOf) - 1;
  for (int32_t i = 0; i < started; ++i) tiles[size_t(i)].limitRows(bandFirst, bandLast);
  for (int32_t y = bandFirst; y <= bandLast; ++y)
    for (int32_t i = 0; i < started; ++i)
      if (y >= tiles[size_t(i)].firstRow() && y <= tiles[size_t(i)].lastRow())
        tiles[size_t(i)].row(y);
  for (int32_t i = 0; i < started; ++i) tiles[size_t(i)].finish();
  return true;
}
