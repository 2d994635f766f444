// demo_image.h - the built-in demo: a camera-like test image and the
// side-by-side comparison picture.
#pragma once

#include <string>

#include "image_io.h"

// A synthetic photograph: smooth gradients, fine detail, text-like strokes,
// colour edges, and sensor-like luma and chroma noise. Deterministic.
Nv21Image makeDemoImage(int width, int height, bool nv12);

// Draws `text` (A-Z, 0-9, space and . , : - / x % ( ) +) with a 5x7 font,
// each font pixel a scale x scale block.
void drawText(RgbaImage& image, int x, int y, const std::string& text, int scale, uint8_t r,
              uint8_t g, uint8_t b);

// Panels of the same region: the input (nearest-neighbour enlarged), the
// bare warp and the filtered result, each zoomed, with a label bar above.
// The crop (cx, cy, cw, ch) is in output pixels; `factor` is output / input.
RgbaImage makeComparison(const RgbaImage& input, const RgbaImage& warpOnly,
                         const RgbaImage& filtered, int cx, int cy, int cw, int ch, int factor,
                         int zoom);
