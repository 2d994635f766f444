// demo_image.cpp - synthetic camera image, bitmap font and comparison panels.
#include "demo_image.h"

#include <cmath>
#include <cstring>

namespace {

// 5x7 glyphs, one byte per row, bit 4 = leftmost column.
struct Glyph {
  char c;
  uint8_t rows[7];
};

constexpr Glyph kFont[] = {
    {'A', {14, 17, 17, 31, 17, 17, 17}}, {'B', {30, 17, 17, 30, 17, 17, 30}},
    {'C', {14, 17, 16, 16, 16, 17, 14}}, {'D', {30, 17, 17, 17, 17, 17, 30}},
    {'E', {31, 16, 16, 30, 16, 16, 31}}, {'F', {31, 16, 16, 30, 16, 16, 16}},
    {'G', {14, 17, 16, 23, 17, 17, 15}}, {'H', {17, 17, 17, 31, 17, 17, 17}},
    {'I', {14, 4, 4, 4, 4, 4, 14}},      {'J', {7, 2, 2, 2, 2, 18, 12}},
    {'K', {17, 18, 20, 24, 20, 18, 17}}, {'L', {16, 16, 16, 16, 16, 16, 31}},
    {'M', {17, 27, 21, 21, 17, 17, 17}}, {'N', {17, 17, 25, 21, 19, 17, 17}},
    {'O', {14, 17, 17, 17, 17, 17, 14}}, {'P', {30, 17, 17, 30, 16, 16, 16}},
    {'Q', {14, 17, 17, 17, 21, 18, 13}}, {'R', {30, 17, 17, 30, 20, 18, 17}},
    {'S', {15, 16, 16, 14, 1, 1, 30}},   {'T', {31, 4, 4, 4, 4, 4, 4}},
    {'U', {17, 17, 17, 17, 17, 17, 14}}, {'V', {17, 17, 17, 17, 17, 10, 4}},
    {'W', {17, 17, 17, 21, 21, 21, 10}}, {'X', {17, 17, 10, 4, 10, 17, 17}},
    {'Y', {17, 17, 10, 4, 4, 4, 4}},     {'Z', {31, 1, 2, 4, 8, 16, 31}},
    {'0', {14, 17, 19, 21, 25, 17, 14}}, {'1', {4, 12, 4, 4, 4, 4, 14}},
    {'2', {14, 17, 1, 2, 4, 8, 31}},     {'3', {31, 2, 4, 2, 1, 17, 14}},
    {'4', {2, 6, 10, 18, 31, 2, 2}},     {'5', {31, 16, 30, 1, 1, 17, 14}},
    {'6', {6, 8, 16, 30, 17, 17, 14}},   {'7', {31, 1, 2, 4, 8, 8, 8}},
    {'8', {14, 17, 17, 14, 17, 17, 14}}, {'9', {14, 17, 17, 15, 1, 2, 12}},
    {'.', {0, 0, 0, 0, 0, 12, 12}},      {',', {0, 0, 0, 0, 12, 4, 8}},
    {':', {0, 12, 12, 0, 12, 12, 0}},    {'-', {0, 0, 0, 31, 0, 0, 0}},
    {'/', {1, 1, 2, 4, 8, 16, 16}},      {'%', {24, 25, 2, 4, 8, 19, 3}},
    {'(', {2, 4, 8, 8, 8, 4, 2}},        {')', {8, 4, 2, 2, 2, 4, 8}},
    {'+', {0, 4, 4, 31, 4, 4, 0}},       {'x', {0, 0, 17, 10, 4, 10, 17}},
};

const Glyph* findGlyph(char c) {
  if (c >= 'a' && c <= 'z' && c != 'x') c = char(c - 'a' + 'A');
  for (const Glyph& g : kFont)
    if (g.c == c) return &g;
  return nullptr;
}

struct Rng {
  uint32_t s;
  uint32_t next() {
    s ^= s << 13;
    s ^= s >> 17;
    s ^= s << 5;
    return s;
  }
  // Approximately normal (sum of four uniforms), unit variance.
  float gauss() {
    float sum = 0;
    for (int i = 0; i < 4; ++i) sum += float(next() & 0xFFFF) / 65535.0f;
    return (sum - 2.0f) * 1.7320508f;
  }
};

uint8_t clampByte(float v) { return uint8_t(v < 0 ? 0 : v > 255 ? 255 : v + 0.5f); }

void setPixel(RgbaImage& img, int x, int y, uint8_t r, uint8_t g, uint8_t b) {
  if (x < 0 || y < 0 || x >= img.width || y >= img.height) return;
  uint8_t* p = &img.pixels[(size_t(y) * img.width + x) * 4];
  p[0] = r;
  p[1] = g;
  p[2] = b;
  p[3] = 255;
}

void fillRect(RgbaImage& img, int x0, int y0, int w, int h, uint8_t r, uint8_t g, uint8_t b) {
  for (int y = y0; y < y0 + h; ++y)
    for (int x = x0; x < x0 + w; ++x) setPixel(img, x, y, r, g, b);
}

}  // namespace

void drawText(RgbaImage& image, int x, int y, const std::string& text, int scale, uint8_t r,
              uint8_t g, uint8_t b) {
  for (char c : text) {
    if (const Glyph* glyph = findGlyph(c)) {
      for (int row = 0; row < 7; ++row)
        for (int col = 0; col < 5; ++col)
          if (glyph->rows[row] & (16 >> col))
            fillRect(image, x + col * scale, y + row * scale, scale, scale, r, g, b);
    }
    x += 6 * scale;
  }
}

Nv21Image makeDemoImage(int width, int height, bool nv12) {
  RgbaImage rgb;
  rgb.width = width;
  rgb.height = height;
  rgb.pixels.assign(size_t(width) * height * 4, 255);
  // Sky-like vertical gradient over a warm horizontal one.
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) {
      const float fy = float(y) / height, fx = float(x) / width;
      setPixel(rgb, x, y, clampByte(90 + 110 * fx * (1 - fy) + 30 * fy),
               clampByte(140 + 60 * (1 - fy) - 30 * fx), clampByte(210 - 120 * fy));
    }
  // Colour patches with sharp edges and a disc.
  const int s = height / 6;
  fillRect(rgb, width / 16, height / 2, s, s, 200, 30, 40);
  fillRect(rgb, width / 16 + s, height / 2, s, s, 40, 160, 60);
  fillRect(rgb, width / 16 + 2 * s, height / 2, s, s, 30, 60, 190);
  fillRect(rgb, width / 16, height / 2 + s, 3 * s, s / 2, 230, 200, 40);
  const int cx = width * 3 / 4, cy = height * 2 / 3, rad = height / 6;
  for (int y = cy - rad; y <= cy + rad; ++y)
    for (int x = cx - rad; x <= cx + rad; ++x)
      if ((x - cx) * (x - cx) + (y - cy) * (y - cy) <= rad * rad) setPixel(rgb, x, y, 220, 90, 160);
  // Fine detail: a patch of 1- and 2-pixel line pairs and a small zone plate.
  const int px = width / 2 - width / 12, py = height / 2 + height / 12, pw = width / 6;
  for (int y = 0; y < pw / 2; ++y)
    for (int x = 0; x < pw; ++x) {
      const int period = x < pw / 2 ? 2 : 4;
      const uint8_t v = ((x / (period / 2)) % 2) ? 40 : 220;
      setPixel(rgb, px + x, py + y, v, v, v);
    }
  for (int y = 0; y < pw / 2; ++y)
    for (int x = 0; x < pw / 2; ++x) {
      const float dx = float(x - pw / 4), dy = float(y - pw / 4);
      const uint8_t v = clampByte(128 + 100 * std::cos((dx * dx + dy * dy) * 0.06f));
      setPixel(rgb, px + x, py + pw / 2 + 4 + y, v, v, v);
    }
  // Text-like strokes, large and small, dark on a light card.
  fillRect(rgb, width / 16, height / 12, width * 7 / 8, height / 4, 235, 232, 225);
  drawText(rgb, width / 16 + 8, height / 12 + 8, "KQUPSCALE 2026", 3, 25, 25, 30);
  drawText(rgb, width / 16 + 8, height / 12 + 40, "FINE PRINT: 0123456789 ABC", 1, 30, 30, 35);
  drawText(rgb, width / 16 + 8, height / 12 + 52, "NV21 4:2:0 / 1.3.0", 2, 150, 20, 20);

  Nv21Image nv = rgbaToNv(rgb, nv12);
  // Sensor-like noise: sigma 3.5 in luma, 3 in chroma (at chroma resolution).
  Rng rng{0x1234567u};
  for (int y = 0; y < nv.height; ++y)
    for (int x = 0; x < nv.width; ++x) {
      uint8_t& v = nv.y()[size_t(y) * nv.stride + x];
      v = clampByte(float(v) + 3.5f * rng.gauss());
    }
  for (int y = 0; y < nv.height / 2; ++y)
    for (int x = 0; x < nv.width; ++x) {
      uint8_t& v = nv.uv()[size_t(y) * nv.stride + x];
      v = clampByte(float(v) + 3.0f * rng.gauss());
    }
  return nv;
}

RgbaImage makeComparison(const RgbaImage& input, const RgbaImage& warpOnly,
                         const RgbaImage& filtered, int cx, int cy, int cw, int ch, int factor,
                         int zoom) {
  constexpr int kBar = 34, kGap = 8;
  const int panelW = cw * zoom, panelH = ch * zoom;
  RgbaImage out;
  out.width = 3 * panelW + 4 * kGap;
  out.height = panelH + kBar + 2 * kGap;
  out.pixels.assign(size_t(out.width) * out.height * 4, 0);
  fillRect(out, 0, 0, out.width, out.height, 32, 32, 36);
  const char* labels[3] = {"INPUT (NEAREST)", "WARP ONLY", "ALL FILTERS"};
  const RgbaImage* sources[3] = {&input, &warpOnly, &filtered};
  for (int panel = 0; panel < 3; ++panel) {
    const int ox = kGap + panel * (panelW + kGap), oy = kBar + kGap;
    drawText(out, ox, kGap, labels[panel], 3, 240, 240, 240);
    const RgbaImage& src = *sources[panel];
    const int div = panel == 0 ? factor : 1;  // the input is `factor` times smaller
    for (int y = 0; y < panelH; ++y)
      for (int x = 0; x < panelW; ++x) {
        const int sx = (cx + x / zoom) / div, sy = (cy + y / zoom) / div;
        if (sx >= src.width || sy >= src.height) continue;
        const uint8_t* p = &src.pixels[(size_t(sy) * src.width + sx) * 4];
        setPixel(out, ox + x, oy + y, p[0], p[1], p[2]);
      }
  }
  return out;
}
