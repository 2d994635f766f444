// warp_engine.cpp - the warp of whole planes: tile rectangles, the rows of a
// tile and their block chains, and the tile rows spread over the workers.
#include "warp/warp_engine.h"

#include <cstdint>
#include <cstring>
#include <new>
#include <utility>

#include "runtime/pool.h"

namespace {

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

// Bump allocation inside a worker's scratch, emptied for every tile row.
class Arena {
 public:
  void reset(uint8_t* base, size_t bytes) {
    base_ = base;
    size_ = bytes;
    used_ = 0;
  }
  // 32-byte aligned room for `bytes`, or null when the arena is full.
  void* take(size_t bytes) {
    const size_t at = (used_ + 31) & ~size_t{31};
    if (at > size_ || bytes > size_ - at) return nullptr;
    used_ = at + bytes;
    return base_ + at;
  }

 private:
  uint8_t* base_ = nullptr;
  size_t size_ = 0, used_ = 0;
};

// Bytes of one chain's codes and plan for rows of `count` pixels, with the
// arena's alignment.
size_t chainBytes(int32_t count) {
  const size_t codes = size_t((count + 7) / 8) * sizeof(int32_t);
  return ((codes + 31) & ~size_t{31}) + ((kqWarpPlanBytes(count) + 31) & ~size_t{31});
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
// Chains live in the worker's arena; when it is full, or a tile has
// kMaxChains, further rows simply run without codes or plan (same bytes).
class ChainCache {
 public:
  static constexpr int32_t kMaxChains = 8;
  static constexpr int32_t kMaxKeys = 64;

  // Empties the cache for rows of count pixels; `scratch` holds one row's
  // codes, chains come from `arena`.
  void reset(int32_t count, Arena* arena, int32_t* scratch) {
    count_ = count;
    blocks_ = (count + 7) / 8;
    arena_ = arena;
    scratch_ = scratch;
    keys_ = 0;
    chains_ = 0;
  }

  // Index of the chain of the row, whose sampling key is `key`, or -1 when
  // the row's codes match no chain and no new one can be kept.
  int32_t find(const KQWarpRow& row, const SamplingKey& key) {
    for (int32_t k = 0; k < keys_; ++k)
      if (key_[k].key == key) return key_[k].chain;
    blockCodes(row, scratch_);
    const size_t codeBytes = size_t(blocks_) * sizeof(int32_t);
    int32_t found = -1;
    for (int32_t c = 0; c < chains_ && found < 0; ++c)
      if (chain_[c].step == row.step && std::memcmp(chain_[c].codes, scratch_, codeBytes) == 0)
        found = c;
    if (found < 0 && chains_ < kMaxChains) {
      auto* codes = static_cast<int32_t*>(arena_->take(codeBytes));
      const size_t planBytes = kqWarpPlanBytes(count_);
      auto* plan = codes != nullptr ? static_cast<uint8_t*>(arena_->take(planBytes)) : nullptr;
      if (plan != nullptr) {
        std::memcpy(codes, scratch_, codeBytes);
        std::memset(plan, 0, planBytes);
        chain_[chains_] = Chain{row.step, codes, plan, 0};
        found = chains_++;
      }
    }
    if (found >= 0 && keys_ < kMaxKeys) key_[keys_++] = Key{key, found};
    return found;
  }

  // Hands chain c's codes and plan to the row kernel.
  void attach(int32_t c, KQWarpRow* row) {
    if (c < 0) return;
    Chain& ch = chain_[c];
    row->codes = ch.codes;
    row->plan = ch.plan;
    row->planReady = &ch.planReady;
  }

 private:
  struct Key {
    SamplingKey key;
    int32_t chain;
  };
  struct Chain {
    int32_t step;
    int32_t* codes;
    uint8_t* plan;
    int32_t planReady;
  };
  int32_t count_ = 0, blocks_ = 0, keys_ = 0, chains_ = 0;
  Arena* arena_ = nullptr;
  int32_t* scratch_ = nullptr;
  Key key_[kMaxKeys];
  Chain chain_[kMaxChains];
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

// What a tile's rows are laid out over: the corner matrices (the tile's own
// anchors the bottom-right of its rectangle, its left, upper and upper-left
// neighbours the left and top edges), the rectangle's first row, its
// columns x0 .. x1 and the blend's divisor over its rows.
struct RowFrame {
  const Homography* upLeft;
  const Homography* left;
  const Homography* up;
  const Homography* own;
  int32_t y0, span;  // span = x1 - x0
  float tDen, fx0, fx1;
};

// Left ends (lx, ly) and per-pixel steps d of output rows y .. y + n - 1:
// the corner matrices blended by each row's position t in the rectangle.
// The step is divided in double and rounded to float; a single column
// (span 0) has no step, its pixel depends on L alone. The matrices' terms
// are copied to locals and the rows are independent, so the compiler runs
// the loop over vectors; every operation is the same IEEE one in the same
// order as for a single row.
void rowGeometry(const RowFrame& f, int32_t y, int32_t n, float* lxOut, float* lyOut,
                 float* dOut) {
  const float a0 = f.upLeft->h[0], a1 = f.upLeft->h[1], a2 = f.upLeft->h[2];
  const float a3 = f.upLeft->h[3], a4 = f.upLeft->h[4], a5 = f.upLeft->h[5];
  const float b0 = f.left->h[0], b1 = f.left->h[1], b2 = f.left->h[2];
  const float b3 = f.left->h[3], b4 = f.left->h[4], b5 = f.left->h[5];
  const float c0 = f.up->h[0], c1 = f.up->h[1], c2 = f.up->h[2];
  const float e0 = f.own->h[0], e1 = f.own->h[1], e2 = f.own->h[2];
  const float fx0 = f.fx0, fx1 = f.fx1, tDen = f.tDen;
  const int32_t y0 = f.y0;
  const double columns = double(f.span);
  const bool hasStep = f.span > 0;
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

// A worker's scratch for the tiles of one tile row: the chain arena and
// room for one row's block codes.
struct WorkerScratch {
  Arena arena;
  int32_t* codes;
};

// One tile's rows, taken one output row at a time, so that the tiles of a
// tile row can write the destination row by row across all of them (long
// runs of stores, which the hardware streams far better than a tile's
// short ones) as well as tile by tile. A tile's bytes do not depend on the
// order: its rows read only the source and its own earlier rows.
class TileRows {
 public:
  // Sets up a tile of `req` (see KQWarpTile). False when the tile
  // writes nothing.
  bool start(const KQWarpRequest& req, const KQWarpTile& tile, WorkerScratch* scratch) {
    const KQWarpSource& src = req.source[tile.plane];
    const KQWarpTarget& dst = req.target[tile.plane];
    // Rows are laid out over x0..x1 and blended over y0..y1; only columns up
    // to lastX and rows up to lastY are written.
    x0_ = tile.rect[0] > 0 ? tile.rect[0] : 0;
    const int32_t y0 = tile.rect[1] > 0 ? tile.rect[1] : 0;
    const int32_t x1 = tile.rect[2] < dst.width - 1 ? tile.rect[2] : dst.width - 1;
    const int32_t y1 = tile.rect[3] < dst.height - 1 ? tile.rect[3] : dst.height - 1;
    if (x1 < x0_ || y1 < y0) return false;
    const int32_t lastX = tile.last[0] < x1 ? tile.last[0] : x1;
    lastY_ = tile.last[1] < y1 ? tile.last[1] : y1;
    if (lastX < x0_ || lastY_ < y0) return false;
    firstY_ = y0;
    batchStart_ = batchEnd_ = y0;

    const int32_t cols = req.tileColumns;
    frame_.own = tile.inverseTile;
    frame_.left = tile.tx > 0 ? frame_.own - 1 : frame_.own;
    frame_.up = tile.ty > 0 ? frame_.own - cols : frame_.own;
    frame_.upLeft = tile.ty > 0 ? frame_.left - cols : frame_.left;
    frame_.y0 = y0;
    frame_.span = x1 - x0_;
    frame_.tDen = y1 == y0 ? 1.0f : static_cast<float>(y1 - y0);
    frame_.fx0 = static_cast<float>(x0_);
    frame_.fx1 = static_cast<float>(x1);

    dsp_ = req.dsp;
    luma_ = req.kind == KQWarpKind::kLuma;
    pairs_ = req.kind == KQWarpKind::kChromaPairs;
    srcW_ = src.width;
    srcH_ = src.height;
    count_ = lastX - x0_ + 1;
    // Rows of pairs in and out for interleaved chroma.
    pitch_ = dst.stride;
    rowBytes_ = size_t(count_) * (pairs_ ? 2 : 1);
    srcData_ = src.data;
    srcStride_ = src.stride;
    dstData_ = dst.data + (pairs_ ? 2 : 1) * ptrdiff_t(x0_);
    swap_ = pairs_ && req.swapPairs ? 1 : 0;
    held_ = &slots_[0];
    next_ = &slots_[1];
    held_->rows = 0;
    heldChain_ = -1;
    heldDst_ = nullptr;
    chains_.reset(count_, &scratch->arena, scratch->codes);
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
    KQWarpRow& row = *next_;
    int32_t sampledRow = 0;  // the nearest sample's source row
    const SamplingKey key = sample(y, &row, &sampledRow);
    uint8_t* out = dstData_ + ptrdiff_t(y) * pitch_;
    // Ask for the destination row kWriteAhead rows down: a store that
    // misses the cache waits for its line to be read first. The lines go to
    // the second-level cache only: kWriteAhead rows of a wide output held in
    // the first level would push out the source rows the kernels are
    // reading (at 3840x2160 that costs 15-30 % of the warp).
    if (y + kWriteAhead <= lastY_) {
      const uint8_t* ahead = out + kWriteAhead * pitch_;
      // Four requests per iteration: the loop's own add, compare and branch
      // would otherwise be three instructions of every four.
#pragma GCC unroll 4
      for (size_t b = 0; b < rowBytes_; b += kLine) __builtin_prefetch(ahead + b, 1, 2);
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
      if (held_->rows > 0) dsp_->bilinearRow(heldDst_, pitch_, held_);
      chains_.attach(rowChain, &row);
      heldDst_ = out;
    } else {
      if (repeats) {
        dsp_->copyRow(out, out - pitch_, rowBytes_);
        return;
      }
      chains_.attach(rowChain, &row);
      writeNearest(out, row, sampledRow);
    }
    heldChain_ = rowChain;
    heldKey_ = key;
    std::swap(held_, next_);
  }

  // Writes the rows still held; call once after the last row.
  void finish() {
    if (luma_ && held_->rows > 0) dsp_->bilinearRow(heldDst_, pitch_, held_);
    held_->rows = 0;
  }

 private:
  // Sets up `row` for output row y: its start and steps, its source rows
  // (and the nearest sample's in *sampledRow) and its vertical weight.
  // Returns the row's sampling key.
  SamplingKey sample(int32_t y, KQWarpRow* row, int32_t* sampledRow) {
    if (y >= batchEnd_) {
      const int32_t n = lastY_ - y + 1 < kBatch ? lastY_ - y + 1 : kBatch;
      rowGeometry(frame_, y, n, batchX_, batchY_, batchD_);
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
    row->srcWidth = srcW_;
    row->count = count_;
    row->rows = 1;
    row->step = step;
    row->blockStep = blockStep;
    row->x = x;
    row->codes = nullptr;
    row->plan = nullptr;
    row->planReady = nullptr;
    if (luma_) {
      // Bilinear: rows iy and iy + 1 weighted by the 1/16-quantised fraction.
      const float cy = clampRowCoord(ly, srcH_);
      const int32_t iy = rowIndex(cy, srcH_);
      const int32_t iy1 = iy + 1 < srcH_ ? iy + 1 : srcH_ - 1;
      row->src0 = srcData_ + ptrdiff_t(iy) * srcStride_;
      row->src1 = srcData_ + ptrdiff_t(iy1) * srcStride_;
      const int32_t w1 = static_cast<int32_t>((cy - static_cast<float>(iy)) * 16.0f);
      row->w1[0] = w1 > 15 ? 15 : w1 < 0 ? 0 : w1;  // bounds matter only beyond 2^24 rows
    } else {
      const int32_t iy = rowIndex(clampRowCoord(ly + 0.5f, srcH_), srcH_);
      *sampledRow = iy;
      row->src0 = srcData_ + ptrdiff_t(iy) * srcStride_;
      row->src1 = row->src0;
      row->w1[0] = 0;
    }
    return SamplingKey(x, blockStep, step);
  }

  // A nearest-sample row computed afresh.
  void writeNearest(uint8_t* out, const KQWarpRow& row, int32_t sampledRow) {
    if (!pairs_) {
      dsp_->nearestRow(out, &row);
      return;
    }
    // Later rows read the source rows below this one: ask for the one
    // kReadAhead rows down over this row's span of pairs.
    const int32_t ahead = sampledRow + kReadAhead;
    if (ahead < srcH_) {
      const float xs = row.x, xe = row.x + float(count_) * (row.blockStep / 8.0f);
      int32_t c0 = int32_t(xs < xe ? xs : xe), c1 = int32_t(xs < xe ? xe : xs) + 1;
      c0 = c0 < 0 ? 0 : c0;
      c1 = c1 > srcW_ - 1 ? srcW_ - 1 : c1;
      const uint8_t* r = srcData_ + ptrdiff_t(ahead) * srcStride_;
      for (int32_t c = c0 & ~31; c <= c1; c += 32) __builtin_prefetch(r + 2 * c);
    }
    dsp_->nearestPairRow(out, &row, swap_);
  }

  // Each row's left end and step are worked out for a batch of rows in a
  // loop of its own: the rows are independent there, so their divisions and
  // conversions overlap instead of waiting on the grouping, which branches
  // on every row.
  static constexpr int32_t kBatch = 32;

  const KQWarpDsp* dsp_ = nullptr;
  bool luma_ = false;
  RowFrame frame_ = {};
  int32_t x0_ = 0, firstY_ = 0, lastY_ = -1, count_ = 0, srcW_ = 0, srcH_ = 0;
  int32_t batchStart_ = 0, batchEnd_ = 0;  // rows batchStart_ .. batchEnd_ - 1 are in the batch
  ptrdiff_t pitch_ = 0, srcStride_ = 0;
  size_t rowBytes_ = 0;
  const uint8_t* srcData_ = nullptr;
  uint8_t* dstData_ = nullptr;
  bool pairs_ = false;
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

// float -> int truncating toward zero; NaN gives 0 and the range is held to
// +-2^30 so that "- 1" and comparisons cannot overflow.
int32_t truncToInt(float v) {
  if (!(v == v)) return 0;
  if (v > 1073741824.0f) return 1073741824;
  if (v < -1073741824.0f) return -1073741824;
  return static_cast<int32_t>(v);
}

int32_t imin(int32_t a, int32_t b) { return a < b ? a : b; }

// h2 + h0 * v (the product rounded first): a source cut mapped to the
// destination with the grid's scale in both axes.
float mapCut(float h0, float shift, int64_t cut) { return shift + h0 * static_cast<float>(cut); }

struct Extent {
  int32_t first, last;
};

// Column extent of tile column tx, with the last column widened by one pixel
// to the left when its right edge is even (never past column 0).
Extent columnExtent(const KQWarpRequest& req, int32_t tx) {
  const Homography& h = req.forwardGrid[0];
  const int64_t cols = req.tileColumns, srcW = req.source[0].width;
  const int64_t a = (tx * srcW) / cols;
  const int64_t c = (srcW + tx * srcW) / cols;
  const float xa = mapCut(h.h[0], h.h[2], a), xc = mapCut(h.h[0], h.h[2], c);
  Extent e;
  e.first = xa > 0.0f ? truncToInt(xa) : 0;
  e.last = imin(truncToInt(xc) - 1, req.target[0].width - 1);
  if (tx == req.tileColumns - 1 && (e.last & 1) == 0 && e.first > 0) e.first -= 1;
  return e;
}

// Row extent of tile row ty. The lower cut divides by the column count, not
// the row count; with square grids the two agree.
Extent rowExtent(const KQWarpRequest& req, int32_t ty) {
  const Homography& h = req.forwardGrid[0];
  const int64_t srcH = req.source[0].height;
  const int64_t b = (ty * srcH) / req.tileRows;
  const int64_t d = ((ty + 1) * srcH) / req.tileColumns;
  const float yb = mapCut(h.h[0], h.h[5], b), yd = mapCut(h.h[0], h.h[5], d);
  Extent e;
  e.first = yb > 0.0f ? truncToInt(yb) : 0;
  e.last = imin(truncToInt(yd) - 1, req.target[0].height - 1);
  return e;
}

// Tiles of a tile row set up together: one destination row of each in turn
// (whole rows of stores, not a tile's short runs). Wider grids go in groups
// of this many tiles; a group's bytes do not depend on the grouping.
constexpr int32_t kTileGroup = 8;

// Room for this many chains per tile, on average over a tile row (uniform
// enlargements give their tiles one to three).
constexpr size_t kChainsPerTile = 3;

// Planes a request warps: plane 1 too when it is given (not for pairs).
int32_t planesOf(const KQWarpRequest& req) {
  return req.kind != KQWarpKind::kChromaPairs && req.source[1].width > 0 &&
                 req.target[1].width > 0
             ? 2
             : 1;
}

// A plane the request can warp: present, not empty, rows apart by at least
// their bytes.
bool planeUsable(const KQWarpRequest& req, int32_t p) {
  const KQWarpSource& s = req.source[p];
  const KQWarpTarget& t = req.target[p];
  const ptrdiff_t sampleBytes = req.kind == KQWarpKind::kChromaPairs ? 2 : 1;
  return s.data != nullptr && s.width >= 1 && s.height >= 1 && s.stride >= sampleBytes * s.width &&
         t.data != nullptr && t.width >= 1 && t.height >= 1 && t.stride >= sampleBytes * t.width;
}

// One worker's scratch: the tile records of a group, one row's codes and
// the chain arena.
struct ScratchLayout {
  size_t tiles, codes, arena, total;
};

size_t roundUp64(size_t n) { return (n + 63) & ~size_t{63}; }

ScratchLayout scratchLayout(const KQWarpRequest& req) {
  const int32_t planes = planesOf(req);
  const int32_t group = req.tileColumns < kTileGroup ? req.tileColumns : kTileGroup;
  int32_t widest = 0;
  for (int32_t p = 0; p < planes; ++p)
    widest = req.target[p].width > widest ? req.target[p].width : widest;
  ScratchLayout s;
  s.tiles = roundUp64(sizeof(TileRows) * size_t(planes) * size_t(group));
  // A tile's row spans at most the target's width.
  s.codes = roundUp64(size_t((widest + 8) / 8 + 1) * sizeof(int32_t));
  // The tiles of a group together span the target's width plus one column
  // each (the widened last column); each chain's plan rounds up by a few
  // records per tile.
  s.arena = kChainsPerTile * size_t(planes) *
            (chainBytes(widest + group) + size_t(group) * chainBytes(64));
  s.total = roundUp64(s.tiles + s.codes + s.arena);
  return s;
}

// Plane 0 sets the rectangles, so without it nothing is warped.
bool usable(const KQWarpRequest& req) {
  return req.dsp != nullptr && req.forwardGrid != nullptr && req.inverseGrid != nullptr &&
         req.tileColumns >= 1 && req.tileRows >= 1 && planeUsable(req, 0);
}

struct Run {
  const KQWarpRequest* req;
  ScratchLayout layout;
  uint8_t* scratch;
  int32_t bands;  // pieces per tile row
  int32_t tiles;  // tiles warped: the grid up to tileLimit
};

// Band `band` of `bands` of tiles tx0 .. tx0 + count - 1 of tile row ty, all
// planes, with worker scratch `base`.
void warpGroup(const Run& run, int32_t ty, int32_t tx0, int32_t count, int32_t band, int32_t bands,
               uint8_t* base) {
  const KQWarpRequest& req = *run.req;
  TileRows* tiles = reinterpret_cast<TileRows*>(base);
  WorkerScratch scratch;
  scratch.codes = reinterpret_cast<int32_t*>(base + run.layout.tiles);
  scratch.arena.reset(base + run.layout.tiles + run.layout.codes, run.layout.arena);
  int32_t started = 0, first = 0, last = -1;
  for (int32_t plane = 0; plane < planesOf(req); ++plane) {
    if (!planeUsable(req, plane)) continue;
    for (int32_t i = 0; i < count; ++i) {
      KQWarpTile tile;
      tile.plane = plane;
      tile.tx = tx0 + i;
      tile.ty = ty;
      tile.inverseTile = &req.inverseGrid[int64_t(ty) * req.tileColumns + tile.tx];
      kqWarpTileRect(req, tile.tx, ty, tile.rect, tile.last);
      TileRows* t = new (&tiles[started]) TileRows;
      if (!t->start(req, tile, &scratch)) continue;
      first = started == 0 || t->firstRow() < first ? t->firstRow() : first;
      last = started == 0 || t->lastRow() > last ? t->lastRow() : last;
      ++started;
    }
  }
  if (started == 0) return;
  // The band: rows first + span * band / bands up to the next band's first
  // row, so that the bands of a group cover its rows exactly once.
  const int64_t span = int64_t(last) - first + 1;
  const int32_t bandFirst = first + int32_t(span * band / bands);
  const int32_t bandLast = first + int32_t(span * (band + 1) / bands) - 1;
  for (int32_t i = 0; i < started; ++i) tiles[i].limitRows(bandFirst, bandLast);
  for (int32_t y = bandFirst; y <= bandLast; ++y)
    for (int32_t i = 0; i < started; ++i)
      if (y >= tiles[i].firstRow() && y <= tiles[i].lastRow()) tiles[i].row(y);
  for (int32_t i = 0; i < started; ++i) tiles[i].finish();
}

// Piece = (tile row, band). A tile row whose tiles all run is cut into
// bands of its rows, each band writing whole rows across the tiles; a row
// that reaches past the tile limit runs its own tiles whole, in band 0.
void warpPiece(void* user, int32_t piece, int32_t worker) {
  const Run& run = *static_cast<const Run*>(user);
  const int32_t cols = run.req->tileColumns;
  const int32_t ty = piece / run.bands, band = piece % run.bands;
  const int32_t rowFirst = ty * cols;
  if (rowFirst >= run.tiles) return;
  const bool wholeRow = rowFirst + cols <= run.tiles;
  if (!wholeRow && band != 0) return;
  const int32_t count = wholeRow ? cols : run.tiles - rowFirst;
  uint8_t* base = run.scratch + size_t(worker) * run.layout.total;
  for (int32_t tx0 = 0; tx0 < count; tx0 += kTileGroup) {
    const int32_t n = count - tx0 < kTileGroup ? count - tx0 : kTileGroup;
    warpGroup(run, ty, tx0, n, wholeRow ? band : 0, wholeRow ? run.bands : 1, base);
  }
}

}  // namespace

size_t kqWarpTileScratchBytes(const KQWarpRequest& request) {
  return request.dsp != nullptr && request.tileColumns >= 1 ? scratchLayout(request).total + 64 : 0;
}

void kqWarpTile(const KQWarpRequest& request, const KQWarpTile& tile, uint8_t* scratch,
                size_t scratchBytes) {
  const size_t need = kqWarpTileScratchBytes(request);
  if (need == 0 || scratch == nullptr || scratchBytes < need || tile.plane < 0 ||
      tile.plane > 1 || !planeUsable(request, tile.plane) || tile.inverseTile == nullptr)
    return;
  uint8_t* base = reinterpret_cast<uint8_t*>((reinterpret_cast<uintptr_t>(scratch) + 63) &
                                             ~uintptr_t{63});
  const ScratchLayout layout = scratchLayout(request);
  WorkerScratch rows;
  rows.codes = reinterpret_cast<int32_t*>(base + layout.tiles);
  rows.arena.reset(base + layout.tiles + layout.codes, layout.arena);
  TileRows* t = new (base) TileRows;
  if (!t->start(request, tile, &rows)) return;
  for (int32_t y = t->firstRow(); y <= t->lastRow(); ++y) t->row(y);
  t->finish();
}

size_t kqWarpScratchBytes(const KQWarpRequest& request, int32_t workers) {
  if (request.tileColumns < 1 || request.target[0].width < 1 || workers < 1) return 0;
  return scratchLayout(request).total * size_t(workers) + 64;
}

void kqWarpTileRect(const KQWarpRequest& request, int32_t tx, int32_t ty, int32_t rect[4],
                    int32_t last[2]) {
  const int32_t cols = request.tileColumns, rows = request.tileRows;
  const Extent xs = columnExtent(request, tx);
  const Extent ys = rowExtent(request, ty);
  rect[0] = xs.first;
  rect[1] = ys.first;
  rect[2] = xs.last;
  rect[3] = ys.last;

  // Rectangles of tiles that run must not share written pixels, or the bytes
  // left there would depend on which worker ran last. The result is the one
  // the tiles give when they run in index order:
  //  - the widened last column takes the column it shares with the tile to
  //    its left (their arithmetic can differ there by a grey level), so that
  //    tile stops writing one column short of it;
  //  - a tile row stops writing above the next tile row's first row (this
  //    only bites for non-square grids, whose lower cut uses the column
  //    count).
  // Only the writing stops short: the row geometry (left and right ends,
  // step, vertical blend) still comes from the whole rectangle.
  last[0] = xs.last;
  last[1] = ys.last;
  const int64_t rowStart = int64_t(ty) * cols;
  if (tx < cols - 1 && rowStart + cols - 1 < request.tileLimit)
    last[0] = imin(last[0], columnExtent(request, cols - 1).first - 1);
  if (ty < rows - 1 && rowStart + cols < request.tileLimit)
    last[1] = imin(last[1], rowExtent(request, ty + 1).first - 1);
}

void kqWarpRun(const KQWarpRequest& request, int32_t threads, uint8_t* scratch,
               size_t scratchBytes) {
  const int32_t workers = kqStepWorkers(threads);
  const size_t need = kqWarpScratchBytes(request, workers);
  if (!usable(request) || need == 0 || scratch == nullptr || scratchBytes < need) return;
  Run run;
  run.req = &request;
  run.layout = scratchLayout(request);
  // Tile records and plans want 64-byte alignment within each worker's part.
  run.scratch = reinterpret_cast<uint8_t*>((reinterpret_cast<uintptr_t>(scratch) + 63) &
                                           ~uintptr_t{63});
  const int64_t gridTiles = int64_t(request.tileColumns) * request.tileRows;
  run.tiles = int32_t(request.tileLimit < gridTiles ? request.tileLimit : gridTiles);
  if (run.tiles < 1) return;
  // One piece per tile row for a single worker; otherwise about four
  // pieces per worker, as bands of the tile rows.
  const int32_t rows = request.tileRows;
  run.bands = workers == 1 ? 1 : (4 * workers + rows - 1) / rows;
  kqRunPieces(rows * run.bands, threads, warpPiece, &run);
}
