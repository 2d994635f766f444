// kqupscale_module.cpp - the `kqupscale` Python module: NV21/NV12 images held
// in NumPy arrays enlarged by the library, and RGB arrays through the
// command-line tool's colour conversion (libyuv, BT.601 limited range).
#include <KQUpScale.h>
#include <libyuv.h>
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <string>
#include <vector>

#include "binding_call.h"

namespace py = pybind11;

namespace {

[[noreturn]] void refuse(const std::string& why) { throw py::value_error(why); }

std::string shapeText(const py::array& a) {
  std::string text = "(";
  for (py::ssize_t i = 0; i < a.ndim(); ++i) text += (i ? ", " : "") + std::to_string(a.shape(i));
  return text + (a.ndim() == 1 ? ",)" : ")");
}

std::string stridesText(const py::array& a) {
  std::string text = "(";
  for (py::ssize_t i = 0; i < a.ndim(); ++i) text += (i ? ", " : "") + std::to_string(a.strides(i));
  return text + (a.ndim() == 1 ? ",)" : ")");
}

// A uint8 array, writeable when the call writes it.
py::array byteArray(const py::object& obj, const char* name, bool written) {
  if (!py::isinstance<py::array>(obj))
    throw py::type_error(std::string(name) + " must be a NumPy array, got " +
                         std::string(py::str(obj.get_type().attr("__name__"))));
  py::array a = py::reinterpret_borrow<py::array>(obj);
  if (!py::isinstance<py::array_t<uint8_t>>(a))
    refuse(std::string(name) + " must have dtype uint8, got " + std::string(py::str(a.dtype())));
  if (written && !a.writeable()) refuse(std::string(name) + " is read-only");
  return a;
}

// The stride of an axis, or `fallback` where the axis has one element (NumPy
// may give such an axis any stride).
int64_t strideOf(const py::array& a, py::ssize_t axis, int64_t fallback) {
  return a.shape(axis) > 1 ? int64_t(a.strides(axis)) : fallback;
}

// The array's first byte; arrays the call writes were checked writeable.
uint8_t* dataOf(const py::array& a) { return static_cast<uint8_t*>(const_cast<void*>(a.data())); }

// A luma array: (height, width), pixels 1 byte apart, rows at any stride of
// at least the width.
kqbind::Plane lumaPlane(const py::array& y, const char* name, int64_t* width, int64_t* height) {
  if (y.ndim() != 2)
    refuse(std::string(name) + " must be a 2-D array (height, width), got shape " + shapeText(y));
  *height = y.shape(0);
  *width = y.shape(1);
  kqbind::Plane p;
  p.pixelStride = strideOf(y, 1, 1);
  p.rowStride = strideOf(y, 0, *width);
  if (p.pixelStride != 1 || p.rowStride < 0)
    refuse(std::string(name) +
           " must have its pixels 1 byte apart and rows in ascending order "
           "(strides (row stride, 1)), got strides " +
           stridesText(y) + "; np.ascontiguousarray makes such a copy");
  p.data = dataOf(y);
  p.bytes = *width > 0 && *height > 0 ? (*height - 1) * p.rowStride + *width : 0;
  return p;
}

// An interleaved chroma array for a width x height luma: (height // 2,
// width // 2, 2) with strides (row stride, 2, 1), or (height // 2,
// width // 2 * 2) with strides (row stride, 1). Sets U and V as two planes
// one byte apart in the given order.
void chromaPlanes(const py::array& uv, const char* name, int64_t width, int64_t height, bool nv12,
                  kqbind::Plane* u, kqbind::Plane* v) {
  const int64_t w2 = width / 2, h2 = height / 2;
  const bool pairs = uv.ndim() == 3;
  const bool shapeOk = pairs ? uv.shape(0) == h2 && uv.shape(1) == w2 && uv.shape(2) == 2
                             : uv.ndim() == 2 && uv.shape(0) == h2 && uv.shape(1) == 2 * w2;
  if (!shapeOk)
    refuse(std::string(name) + " must have shape (" + std::to_string(h2) + ", " +
           std::to_string(w2) + ", 2) or (" + std::to_string(h2) + ", " + std::to_string(2 * w2) +
           ") for a " + std::to_string(width) + "x" + std::to_string(height) +
           " luma (height // 2 rows of width // 2 pairs), got " + shapeText(uv));
  const int64_t rowStride = strideOf(uv, 0, 2 * w2);
  const bool bytesOk =
      pairs ? strideOf(uv, 1, 2) == 2 && strideOf(uv, 2, 1) == 1 : strideOf(uv, 1, 1) == 1;
  if (!bytesOk || rowStride < 0)
    refuse(std::string(name) + " must hold its pairs 2 bytes apart, the two bytes of a pair " +
           "adjacent and rows in ascending order (strides " +
           (pairs ? "(row stride, 2, 1)" : "(row stride, 1)") + "), got strides " +
           stridesText(uv) + "; np.ascontiguousarray makes such a copy");
  uint8_t* data = dataOf(uv);
  const int64_t span = w2 > 0 && h2 > 0 ? (h2 - 1) * rowStride + 2 * w2 : 0;
  kqbind::Plane first{data, rowStride, 2, span};
  kqbind::Plane second{data + (span > 0 ? 1 : 0), rowStride, 2, span > 0 ? span - 1 : 0};
  *u = nv12 ? first : second;
  *v = nv12 ? second : first;
}

bool parseOrder(const std::string& order) {
  std::string o = order;
  std::transform(o.begin(), o.end(), o.begin(), [](unsigned char c) { return std::tolower(c); });
  if (o == "nv12") return true;
  if (o == "nv21") return false;
  refuse("order must be 'nv21' (V,U pairs) or 'nv12' (U,V pairs), got '" + order + "'");
}

// A sequence of `n` integers, or a ValueError naming what it should be.
std::vector<int64_t> intSequence(const py::object& obj, size_t n, const std::string& what) {
  std::vector<int64_t> values;
  if (py::isinstance<py::sequence>(obj) && !py::isinstance<py::str>(obj)) {
    py::sequence seq = py::reinterpret_borrow<py::sequence>(obj);
    if (seq.size() == n) {
      for (py::handle item : seq) {
        if (!py::isinstance<py::int_>(item) && !py::hasattr(item, "__index__")) break;
        values.push_back(py::int_(py::reinterpret_borrow<py::object>(item)).cast<int64_t>());
      }
    }
  }
  if (values.size() != n) refuse(what + ", got " + std::string(py::str(py::repr(obj))));
  return values;
}

kqbind::Region parseRoi(const py::object& roi) {
  kqbind::Region region;
  if (roi.is_none()) return region;
  const std::vector<int64_t> r = intSequence(roi, 4, "roi must be (x, y, width, height)");
  region.whole = false;
  region.x = r[0];
  region.y = r[1];
  region.width = r[2];
  region.height = r[3];
  return region;
}

// A new zero-filled array: numpy.zeros takes zeroed pages from the system
// without writing them, and no byte that the library does not write (a call
// that cannot get its working memory writes nothing) is left uninitialised.
py::array_t<uint8_t> zeros(std::vector<py::ssize_t> shape) {
  py::tuple dims(shape.size());
  for (size_t i = 0; i < shape.size(); ++i) dims[i] = py::int_(shape[i]);
  return py::module_::import("numpy").attr("zeros")(dims, "uint8");
}

// Runs a checked call without the GIL, so that other Python threads go on
// (and may call the library at the same time).
void run(const kqbind::Frame& in, const kqbind::Frame& out, const kqbind::Region& region,
         const kqbind::Settings& settings) {
  const std::string problem = kqbind::checkCall(in, out, region, settings);
  if (!problem.empty()) refuse(problem);
  py::gil_scoped_release release;
  kqbind::runCall(in, out, region, settings);
}

py::tuple upscale(const py::object& yObj, const py::object& uvObj, const py::object& size,
                  const std::string& order, const py::object& roi, int32_t noiseReduction,
                  int32_t chromaNoiseReduction, float sharpening, int32_t threads,
                  const py::object& outObj) {
  const bool nv12 = parseOrder(order);
  kqbind::Frame in;
  const py::array y = byteArray(yObj, "y", false);
  in.y = lumaPlane(y, "y", &in.width, &in.height);
  const py::array uv = byteArray(uvObj, "uv", false);
  chromaPlanes(uv, "uv", in.width, in.height, nv12, &in.u, &in.v);
  const kqbind::Region region = parseRoi(roi);
  const kqbind::Settings settings{noiseReduction, chromaNoiseReduction, sharpening, threads};

  int64_t outW = -1, outH = -1;
  if (!size.is_none()) {
    const std::vector<int64_t> s = intSequence(size, 2, "size must be (width, height)");
    outW = s[0];
    outH = s[1];
  } else if (outObj.is_none()) {
    refuse("size (width, height) is needed when no out arrays are given");
  }

  py::array outY, outUv;
  if (outObj.is_none()) {
    const std::string problem = kqbind::checkOutputSize(outW, outH);
    if (!problem.empty()) refuse(problem);
    outY = zeros({outH, outW});
    outUv = zeros({outH / 2, outW / 2, 2});
  } else {
    if (!py::isinstance<py::tuple>(outObj) || py::len(outObj) != 2)
      refuse("out must be a tuple (y, uv) of arrays to write");
    const py::tuple pair = py::reinterpret_borrow<py::tuple>(outObj);
    outY = byteArray(pair[0], "out y", true);
    outUv = byteArray(pair[1], "out uv", true);
  }
  kqbind::Frame out;
  out.y = lumaPlane(outY, "out y", &out.width, &out.height);
  if (outW >= 0 && (out.width != outW || out.height != outH))
    refuse("size (" + std::to_string(outW) + ", " + std::to_string(outH) +
           ") does not match out y's shape " + shapeText(outY) + " (height, width)");
  chromaPlanes(outUv, "out uv", out.width, out.height, nv12, &out.u, &out.v);

  run(in, out, region, settings);
  return py::make_tuple(outY, outUv);
}

// --- RGB ------------------------------------------------------------------

// Packed RGBA of an (h, w, 3 or 4) array, its last column and row repeated
// to even sides as 4:2:0 needs (as the command-line tool does). Alpha is
// not read by the conversion.
struct Rgba {
  int64_t width = 0, height = 0;
  std::vector<uint8_t> pixels;
};

py::array rgbArray(const py::object& obj, int64_t* width, int64_t* height, int64_t* channels) {
  const py::array rgb = byteArray(obj, "rgb", false);
  if (rgb.ndim() != 3 || (rgb.shape(2) != 3 && rgb.shape(2) != 4))
    refuse("rgb must have shape (height, width, 3) or (height, width, 4), got " + shapeText(rgb));
  *height = rgb.shape(0);
  *width = rgb.shape(1);
  *channels = rgb.shape(2);
  if (*width < 2 || *height < 2)
    refuse("rgb image " + std::to_string(*width) + "x" + std::to_string(*height) +
           " is below 2x2, too small for 4:2:0");
  return rgb;
}

// Called without the GIL: reads the array's bytes at its strides.
Rgba evenRgba(const uint8_t* data, const py::ssize_t* strides, int64_t width, int64_t height,
              int64_t channels) {
  Rgba out;
  out.width = (width + 1) & ~int64_t{1};
  out.height = (height + 1) & ~int64_t{1};
  out.pixels.resize(size_t(out.width * out.height * 4));
  uint8_t* to = out.pixels.data();
  for (int64_t r = 0; r < out.height; ++r) {
    const uint8_t* row = data + std::min(r, height - 1) * strides[0];
    for (int64_t c = 0; c < out.width; ++c, to += 4) {
      const uint8_t* px = row + std::min(c, width - 1) * strides[1];
      to[0] = px[0];
      to[1] = px[strides[2]];
      to[2] = px[2 * strides[2]];
      to[3] = channels == 4 ? px[3 * strides[2]] : 255;
    }
  }
  return out;
}

// RGBA bytes in memory are what libyuv calls ABGR.
void rgbaToNv(const Rgba& rgba, uint8_t* y, int64_t yStride, uint8_t* uv, int64_t uvStride,
              bool nv12) {
  auto convert = nv12 ? libyuv::ABGRToNV12 : libyuv::ABGRToNV21;
  convert(rgba.pixels.data(), int(rgba.width * 4), y, int(yStride), uv, int(uvStride),
          int(rgba.width), int(rgba.height));
}

// The top-left width x height of an NV image as RGB(A) into `out` (rows of
// width * channels bytes); alpha comes out 255.
void nvToRgb(const uint8_t* y, int64_t yStride, const uint8_t* uv, int64_t uvStride, bool nv12,
             int64_t nvWidth, int64_t nvHeight, int64_t width, int64_t height, int64_t channels,
             uint8_t* out) {
  std::vector<uint8_t> rgba(size_t(nvWidth * nvHeight * 4));
  auto convert = nv12 ? libyuv::NV12ToABGR : libyuv::NV21ToABGR;
  convert(y, int(yStride), uv, int(uvStride), rgba.data(), int(nvWidth * 4), int(nvWidth),
          int(nvHeight));
  for (int64_t r = 0; r < height; ++r) {
    const uint8_t* from = rgba.data() + size_t(r * nvWidth * 4);
    uint8_t* to = out + size_t(r * width * channels);
    if (channels == 4) {
      std::memcpy(to, from, size_t(width * 4));
      continue;
    }
    for (int64_t c = 0; c < width; ++c, to += 3, from += 4) std::memcpy(to, from, 3);
  }
}

py::tuple rgbToNv(const py::object& rgbObj, const std::string& order) {
  const bool nv12 = parseOrder(order);
  int64_t w, h, channels;
  const py::array rgb = rgbArray(rgbObj, &w, &h, &channels);
  const int64_t ew = (w + 1) & ~int64_t{1}, eh = (h + 1) & ~int64_t{1};
  py::array_t<uint8_t> y = zeros({eh, ew}), uv = zeros({eh / 2, ew / 2, 2});
  uint8_t* yData = y.mutable_data();
  uint8_t* uvData = uv.mutable_data();
  const uint8_t* data = static_cast<const uint8_t*>(rgb.data());
  const py::ssize_t* strides = rgb.strides();
  {
    py::gil_scoped_release release;
    rgbaToNv(evenRgba(data, strides, w, h, channels), yData, ew, uvData, ew, nv12);
  }
  return py::make_tuple(y, uv);
}

py::array nvToRgbArray(const py::object& yObj, const py::object& uvObj, const std::string& order,
                       bool alpha) {
  const bool nv12 = parseOrder(order);
  kqbind::Frame f;
  const py::array y = byteArray(yObj, "y", false);
  f.y = lumaPlane(y, "y", &f.width, &f.height);
  const py::array uv = byteArray(uvObj, "uv", false);
  chromaPlanes(uv, "uv", f.width, f.height, nv12, &f.u, &f.v);
  if (f.width < 2 || f.height < 2 || f.width % 2 != 0 || f.height % 2 != 0)
    refuse("nv_to_rgb needs an even width and height of at least 2, got " +
           std::to_string(f.width) + "x" + std::to_string(f.height));
  const int64_t channels = alpha ? 4 : 3;
  py::array_t<uint8_t> rgb({f.height, f.width, channels});
  uint8_t* out = rgb.mutable_data();
  const uint8_t* first = nv12 ? f.u.data : f.v.data;
  {
    py::gil_scoped_release release;
    nvToRgb(f.y.data, f.y.rowStride, first, f.u.rowStride, nv12, f.width, f.height, f.width,
            f.height, channels, out);
  }
  return std::move(rgb);
}

py::array upscaleRgb(const py::object& rgbObj, const py::object& size, const py::object& roi,
                     int32_t noiseReduction, int32_t chromaNoiseReduction, float sharpening,
                     int32_t threads) {
  int64_t w, h, channels;
  const py::array rgb = rgbArray(rgbObj, &w, &h, &channels);
  const std::vector<int64_t> s = intSequence(size, 2, "size must be (width, height)");
  const int64_t outW = s[0], outH = s[1];
  if (const std::string problem = kqbind::checkOutputSize(outW, outH); !problem.empty())
    refuse(problem);
  const kqbind::Region region = parseRoi(roi);
  if (!region.whole && (region.x < 0 || region.y < 0 || region.width < 1 || region.height < 1 ||
                        region.width > w - region.x || region.height > h - region.y))
    refuse("roi does not lie inside the " + std::to_string(w) + "x" + std::to_string(h) + " image");

  // An odd-sized picture goes in with its last column / row repeated; it is
  // enlarged at the scale asked for, to even sides, and the result cut back
  // to the size asked for (as the command-line tool does).
  const int64_t ew = (w + 1) & ~int64_t{1}, eh = (h + 1) & ~int64_t{1};
  int64_t fullW = outW, fullH = outH;
  if (region.whole) {
    fullW = (outW * ew + w - 1) / w;
    fullH = (outH * eh + h - 1) / h;
  }
  fullW += fullW & 1;
  fullH += fullH & 1;
  if (const std::string problem = kqbind::checkOutputSize(fullW, fullH); !problem.empty())
    refuse(problem);

  std::vector<uint8_t> in(size_t(ew * eh + ew * (eh / 2)));
  std::vector<uint8_t> outNv;
  auto frame = [](uint8_t* data, int64_t width, int64_t height) {
    kqbind::Frame f;
    f.width = width;
    f.height = height;
    f.y = {data, width, 1, width * height};
    const int64_t chroma = width * (height / 2);
    f.v = {data + width * height, width, 2, chroma};
    f.u = {data + width * height + 1, width, 2, chroma - 1};
    return f;
  };
  // Checked before any work, with the planes the input will have.
  const kqbind::Frame inFrame = frame(in.data(), ew, eh);
  outNv.resize(size_t(fullW * fullH + fullW * (fullH / 2)));
  const kqbind::Frame outFrame = frame(outNv.data(), fullW, fullH);
  const kqbind::Settings settings{noiseReduction, chromaNoiseReduction, sharpening, threads};
  const std::string problem = kqbind::checkCall(inFrame, outFrame, region, settings);
  if (!problem.empty()) refuse(problem);

  py::array_t<uint8_t> result({outH, outW, channels});
  uint8_t* resultData = result.mutable_data();
  const uint8_t* data = static_cast<const uint8_t*>(rgb.data());
  const py::ssize_t* strides = rgb.strides();
  {
    py::gil_scoped_release release;
    rgbaToNv(evenRgba(data, strides, w, h, channels), inFrame.y.data, ew, inFrame.v.data, ew,
             false);
    kqbind::runCall(inFrame, outFrame, region, settings);
    nvToRgb(outFrame.y.data, fullW, outFrame.v.data, fullW, false, fullW, fullH, outW, outH,
            channels, resultData);
  }
  return std::move(result);
}

constexpr const char* kUpscaleDoc =
    R"doc(Enlarges a two-plane 4:2:0 image to `size` = (width, height).

y   uint8 array (height, width); pixels 1 byte apart, rows at any stride of
    at least the width (slices of a larger array and padded rows are read
    where they lie).
uv  uint8 array (height // 2, width // 2, 2), or (height // 2, width // 2 * 2),
    of interleaved chroma pairs in `order`: "nv21" (V,U) or "nv12" (U,V); the
    two bytes of a pair adjacent, pairs 2 bytes apart, rows at any stride.
    The library reads chroma at the luma's row stride: a uv whose row stride
    differs from y's is first copied into a plane that has it.
roi (x, y, width, height) of the input to enlarge, inside the image; its
    sides are rounded down to multiples of 4, and it is cut at the right or
    bottom to the output's aspect ratio (so is the whole image). An odd x
    starts the chroma between two pairs: each U is then taken from the pair
    left of its V.
noise_reduction 1..10 (0: off), chroma_noise_reduction 1..10 (0: off),
sharpening >= 0 (0: off, about 1 typical); threads: 0 or 1 runs on the
    calling thread, n > 1 over a process-wide pool, n < 0 on |n| threads
    started for each step. The bytes are the same for every thread count.
out (y, uv) arrays to write instead of new ones, laid out as above with the
    output's size (size may then be left out). Luma is written in place
    (the row padding keeps its bytes); chroma is written in place when the
    output is packed (width even, both row strides equal to the width),
    otherwise through a scratch plane whose pairs are copied in. Only the
    arrays' elements change.

Returns the output (y, uv) (the out arrays when given). Raises ValueError,
before anything is read or written, for arrays, sizes and settings the
library would refuse or could not be handed. The GIL is released during
the call: several threads may enlarge images at once.
)doc";

}  // namespace

PYBIND11_MODULE(kqupscale, m) {
  m.doc() =
      "Enlarges NV21/NV12 images held in NumPy arrays with libKQUpScale (upscale), and RGB "
      "arrays through BT.601 limited-range conversion (upscale_rgb, rgb_to_nv, nv_to_rgb).";
  m.def(
      "version", [] { return std::string(KQUpScale_GetVersion()); },
      "The library's version string.");
  m.def("upscale", &upscale, py::arg("y"), py::arg("uv"), py::arg("size") = py::none(),
        py::kw_only(), py::arg("order") = "nv21", py::arg("roi") = py::none(),
        py::arg("noise_reduction") = 3, py::arg("chroma_noise_reduction") = 4,
        py::arg("sharpening") = 0.6, py::arg("threads") = 0, py::arg("out") = py::none(),
        kUpscaleDoc);
  m.def("upscale_rgb", &upscaleRgb, py::arg("rgb"), py::arg("size"), py::kw_only(),
        py::arg("roi") = py::none(), py::arg("noise_reduction") = 3,
        py::arg("chroma_noise_reduction") = 4, py::arg("sharpening") = 0.6, py::arg("threads") = 0,
        "Enlarges an RGB (height, width, 3) or RGBA (height, width, 4) uint8 array to size = "
        "(width, height), through NV21 as rgb_to_nv and nv_to_rgb convert. Any strides (a BGR "
        "image as bgr[..., ::-1]); odd sides as the command-line tool handles them; alpha comes "
        "back 255. The other arguments as in upscale.");
  m.def("rgb_to_nv", &rgbToNv, py::arg("rgb"), py::kw_only(), py::arg("order") = "nv21",
        "Converts an RGB(A) uint8 array (height, width, 3 or 4) to NV21 (or NV12): BT.601, "
        "limited range (luma 16-235, chroma 16-240), through libyuv as the command-line tool "
        "does. An odd side gets its last column / row repeated, so the result is then one "
        "pixel wider or taller.");
  m.def("nv_to_rgb", &nvToRgbArray, py::arg("y"), py::arg("uv"), py::kw_only(),
        py::arg("order") = "nv21", py::arg("alpha") = false,
        "Converts an NV21 (or NV12) image of even sides, laid out as upscale takes it, to RGB "
        "(height, width, 3), or RGBA with alpha 255: the inverse of rgb_to_nv.");
}
