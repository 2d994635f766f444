// main.cpp - kqupscale: enlarge PNG, JPEG or raw NV12/NV21 images with
// libKQUpScale from the command line, or run the built-in demo.
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "KQUpScale.h"
#include "demo_image.h"
#include "image_io.h"
#include "runtime/log.h"
#include "runtime/timer.h"

namespace {

// Output sizes beyond this are refused: the working planes of one call need
// about six bytes per output pixel.
constexpr int64_t kMaxOutputPixels = int64_t(256) << 20;
constexpr int kMaxOutputSide = 32768;

struct Options {
  std::vector<std::string> inputs;
  std::string output;
  double scale = 0.0;
  std::string outSize;
  std::string roi;
  std::string rawSize;
  std::string format;
  int stride = 0;
  int nr = 3;
  int chromaNr = 4;
  float sharpen = 0.6f;
  int threads = 0;
  std::string affinity = "0";
  int jpegQuality = 92;
  bool timing = false;
  bool quiet = false;
  bool verbose = false;
  bool demo = false;
  std::string demoDir = "kqupscale-demo";
};

struct Region {
  int left = -1, top = -1, right = -1, bottom = -1;
};

// Stage times as the library's stage timers report them (stage ids and
// descriptions: runtime/stages.h).
struct StageTime {
  int id;
  double ms;
};

// Library log lines: a refused call's line ("KQUpScale: <why>; nothing
// written", which the header documents) is kept for the tool's own error;
// other lines are shown as the log level asks (--verbose, --quiet, or the
// KQ_LOG variable). Stage times come from the timers' receiver.
std::vector<StageTime> gStages;
std::string gRefusal;

void collectStage(void*, int32_t stage, double ms) { gStages.push_back({stage, ms}); }
const KQStageReceiver kStageReceiver = {collectStage, nullptr};

void logSink(void*, FILE*, int32_t priority, const char* tag, const char* message) {
  const std::string text(message);
  const std::string refused = "; nothing written";
  if (priority >= KQ_LOG_ERROR && text.size() > refused.size() &&
      text.compare(text.size() - refused.size(), refused.size(), refused) == 0) {
    const std::string prefix = "KQUpScale: ";
    const size_t from = text.rfind(prefix, 0) == 0 ? prefix.size() : 0;
    gRefusal = text.substr(from, text.size() - refused.size() - from);
    return;
  }
  if (kqLogWanted(priority))
    std::fprintf(stderr, "%c/%s: %s\n", kqLogPriorityLetter(priority), tag, message);
}

// Accepts a plain decimal number within [lo, hi]; rejects nan, inf and
// anything with trailing characters.
CLI::Validator finiteRange(double lo, double hi) {
  return CLI::Validator(
      [lo, hi](std::string& text) -> std::string {
        char* end = nullptr;
        errno = 0;
        const double v = std::strtod(text.c_str(), &end);
        if (text.empty() || text.find_first_not_of("0123456789.+-eE") != std::string::npos ||
            *end != '\0' || errno == ERANGE || !std::isfinite(v) || v < lo || v > hi) {
          std::ostringstream why;
          why << "expects a number from " << lo << " to " << hi << ", got '" << text << "'";
          return why.str();
        }
        return std::string();
      },
      "NUMBER");
}

// "WxH" with both sides from 1 to 65535.
bool parseSize(const std::string& text, int* w, int* h) {
  char x = 0;
  std::istringstream in(text);
  if (!(in >> *w >> x >> *h) || (x != 'x' && x != 'X')) return false;
  in >> std::ws;
  return in.eof() && *w >= 1 && *h >= 1 && *w <= 65535 && *h <= 65535;
}

// The region x,y,w,h of a width x height picture. Its left and top are
// rounded down to even, keeping its size: 4:2:0 chroma covers 2x2 pixels,
// and a region starting at an odd column would take every chroma pair from
// the middle of two pairs, which the library reads with U and V exchanged
// (red comes out blue). `*moved` says whether the corner moved.
Region parseRegion(const std::string& text, int width, int height, bool* moved) {
  int x, y, w, h;
  char c1 = 0, c2 = 0, c3 = 0;
  std::istringstream in(text);
  if (!(in >> x >> c1 >> y >> c2 >> w >> c3 >> h) || c1 != ',' || c2 != ',' || c3 != ',' ||
      !(in >> std::ws).eof())
    throw ToolError("--roi expects x,y,w,h, got '" + text + "'");
  if (x < 0 || y < 0 || w < 4 || h < 4 || int64_t(x) + w > width || int64_t(y) + h > height)
    throw ToolError("region " + text + " lies outside the " + std::to_string(width) + "x" +
                    std::to_string(height) + " image or is smaller than 4x4");
  *moved = (x | y) & 1;
  x &= ~1;
  y &= ~1;
  return Region{x, y, x + w - 1, y + h - 1};
}

bool isDirectory(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// Creates a folder and the missing folders above it, as mkdir -p does.
void makeFolders(const std::string& path) {
  int failure = 0;
  for (size_t end = path.find('/', 1);; end = path.find('/', end + 1)) {
    const std::string part = path.substr(0, end);
    if (!part.empty() && ::mkdir(part.c_str(), 0777) != 0 && errno != EEXIST) failure = errno;
    if (end == std::string::npos) break;
  }
  if (!isDirectory(path))
    throw ToolError("cannot create the output folder '" + path +
                    "': " + std::strerror(failure != 0 ? failure : ENOTDIR));
}

std::string baseName(const std::string& path) {
  const size_t slash = path.find_last_of('/');
  std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
  const size_t dot = name.find_last_of('.');
  return dot == std::string::npos ? name : name.substr(0, dot);
}

// `folder` + "/" + `name`, with no doubled slash when the folder ends in one.
std::string joinPath(std::string folder, const std::string& name) {
  while (folder.size() > 1 && folder.back() == '/') folder.pop_back();
  return folder == "/" ? folder + name : folder + "/" + name;
}

// The folder a file path lies in ("." for a bare name).
std::string folderOf(const std::string& path) {
  const size_t slash = path.find_last_of('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

std::string extensionOf(const std::string& path) {
  const size_t dot = path.find_last_of('.');
  const size_t slash = path.find_last_of('/');
  if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return "";
  return path.substr(dot);
}

bool rawIsNv12(const std::string& path, const std::string& format, bool fallback) {
  if (format == "nv12") return true;
  if (format == "nv21") return false;
  std::string ext = extensionOf(path);
  std::transform(ext.begin(), ext.end(), ext.begin(), ::tolower);
  if (ext == ".nv12") return true;
  if (ext == ".nv21") return false;
  return fallback;
}

// An input as the library gets it, and the size of the picture in it:
// PNG and JPEG pictures of odd size are one column / row smaller than
// `image` (see rgbaToNv).
struct Picture {
  Nv21Image image;
  int width = 0, height = 0;
};

Picture readInput(const std::string& path, const Options& o) {
  FileKind kind = kindFromExtension(path);
  if (!o.rawSize.empty()) kind = FileKind::kRaw;
  Picture picture;
  if (kind == FileKind::kRaw) {
    int w = 0, h = 0;
    if (o.rawSize.empty()) throw ToolError("raw input '" + path + "' needs --size WxH");
    if (!parseSize(o.rawSize, &w, &h))
      throw ToolError("--size expects WxH, got '" + o.rawSize + "'");
    picture.image = readRaw(path, w, h, o.stride, rawIsNv12(path, o.format, false));
    picture.width = w;
    picture.height = h;
    return picture;
  }
  RgbaImage rgba;
  if (kind == FileKind::kPng) {
    rgba = readPng(path);
  } else if (kind == FileKind::kJpeg) {
    rgba = readJpeg(path);
  } else {
    // Unknown extension: decide by content.
    std::FILE* f = std::fopen(path.c_str(), "rb");
    if (f == nullptr) throw ToolError("cannot read '" + path + "': " + std::strerror(errno));
    unsigned char head[8] = {0};
    const size_t n = std::fread(head, 1, sizeof head, f);
    std::fclose(f);
    if (n >= 8 && head[0] == 0x89 && head[1] == 'P') {
      rgba = readPng(path);
    } else if (n >= 3 && head[0] == 0xFF && head[1] == 0xD8) {
      rgba = readJpeg(path);
    } else {
      throw ToolError("'" + path + "' is not a PNG or JPEG file (give --size for raw NV12/NV21)");
    }
  }
  picture.image = rgbaToNv(rgba, o.format == "nv12");
  picture.width = rgba.width;
  picture.height = rgba.height;
  return picture;
}

// What can be known about an output path before the work: its format and
// name (checkOutputName), and that its folder exists and can be written to
// (checkOutputFolder).
void checkOutputName(const std::string& path) {
  if (kindFromExtension(path) == FileKind::kUnknown)
    throw ToolError("cannot tell the output format of '" + path +
                    "' (use .png, .jpg, .yuv, .nv12 or .nv21)");
  if (isDirectory(path)) throw ToolError("output '" + path + "' is a folder");
}

void checkOutputFolder(const std::string& path) {
  const std::string folder = folderOf(path);
  struct stat st;
  if (::stat(folder.c_str(), &st) != 0)
    throw ToolError("cannot write '" + path + "': folder '" + folder + "' does not exist");
  if (!S_ISDIR(st.st_mode))
    throw ToolError("cannot write '" + path + "': '" + folder + "' is not a folder");
  if (::access(folder.c_str(), W_OK | X_OK) != 0)
    throw ToolError("cannot write '" + path + "': folder '" + folder +
                    "': " + std::strerror(errno));
}

void writeOutput(const std::string& path, const Nv21Image& image, const Options& o) {
  switch (kindFromExtension(path)) {
    case FileKind::kPng:
      writeFileAtomically(path, encodePng(nvToRgba(image)));
      return;
    case FileKind::kJpeg:
      writeFileAtomically(path, encodeJpeg(nvToRgba(image), o.jpegQuality));
      return;
    case FileKind::kRaw: {
      Nv21Image copy = image;
      const bool nv12 = rawIsNv12(path, o.format, image.nv12);
      if (nv12 != image.nv12) {
        for (size_t i = size_t(copy.stride) * copy.height; i + 1 < copy.data.size(); i += 2)
          std::swap(copy.data[i], copy.data[i + 1]);
        copy.nv12 = nv12;
      }
      writeFileAtomically(path, packRaw(copy));
      return;
    }
    case FileKind::kUnknown:
      break;
  }
  throw ToolError("cannot tell the output format of '" + path +
                  "' (use .png, .jpg, .yuv, .nv12 or .nv21)");
}

struct Settings {
  int nr, chromaNr;
  float sharpen;
  int threads, affinity;
};

// Runs the library on `in` (optionally a region) into a new image of
// outW x outH; returns the wall time in milliseconds. A call the library
// refuses (it writes nothing) is an error, not an empty picture.
double upscale(const Nv21Image& in, const Region& region, int outW, int outH, const Settings& s,
               Nv21Image* out) {
  out->width = outW;
  out->height = outH;
  out->stride = outW;
  out->nv12 = in.nv12;
  out->data.assign(size_t(outW) * (outH + outH / 2), 0);
  const int32_t code = in.nv12 ? 9 : 8;
  KQYUVMultiPlaneImage src{code,
                           in.width,
                           in.height,
                           1,
                           in.stride,
                           in.height,
                           2,
                           in.stride,
                           2,
                           in.stride,
                           const_cast<uint8_t*>(in.y()),
                           const_cast<uint8_t*>(in.uv()),
                           nullptr};
  KQYUVMultiPlaneImage dst{code, outW, outH, 1,        outW,      outH,   2,
                           outW, 2,    outW, out->y(), out->uv(), nullptr};
  gRefusal.clear();
  const auto t0 = std::chrono::steady_clock::now();
  KQUpScale_ScaleImageFromROI(&src, &dst, region.left, region.top, region.right, region.bottom,
                              s.nr, s.chromaNr, s.sharpen, s.threads, s.affinity);
  const auto t1 = std::chrono::steady_clock::now();
  if (!gRefusal.empty())
    throw ToolError("enlarging to " + std::to_string(outW) + "x" + std::to_string(outH) +
                    " refused by the library: " + gRefusal);
  return std::chrono::duration<double, std::milli>(t1 - t0).count();
}

// The stages in the order a call runs them, each with what it does, nested
// in its group.
void printStages() {
  for (size_t k = 0; k < kKqStageCount; ++k) {
    const KQStageInfo& info = kKqStages[k];
    for (const StageTime& t : gStages) {
      if (t.id != kqStageId(info.id)) continue;
      const int indent = 2 * info.depth;
      std::printf("  %3d  %*s%-*s %9.2f ms\n", t.id, indent, "", 46 - indent, info.what, t.ms);
    }
  }
  gStages.clear();
}

void checkOutputSize(int64_t w, int64_t h) {
  if (w < 2 || h < 2)
    throw ToolError("output size " + std::to_string(w) + "x" + std::to_string(h) + " is below 2x2");
  if (w > kMaxOutputSide || h > kMaxOutputSide || w * h > kMaxOutputPixels)
    throw ToolError("output size " + std::to_string(w) + "x" + std::to_string(h) +
                    " is beyond the memory bound (at most 256 megapixels and 32768 per side)");
}

// The output size: exact with --out-size, else the one the header's
// helper gives for the scale (even sides, the work size's aspect ratio).
void outputSize(const Options& o, int workW, int workH, int64_t* outW, int64_t* outH) {
  if (!o.outSize.empty()) {
    int w = 0, h = 0;
    parseSize(o.outSize, &w, &h);  // checked before the work
    *outW = w;
    *outH = h;
    return;
  }
  const double f = o.scale > 0 ? o.scale : 2.0;
  int32_t w = 0, h = 0;
  if (!KQUpScale_OutputSize(workW, workH, f, &w, &h)) {
    // Refused: beyond 2 GiB of luma (then beyond the tool's own bound too),
    // or a few pixels that keep less than 4x4 of the source.
    checkOutputSize(std::llround(f * workW), std::llround(f * workH));
    std::ostringstream why;
    why << "scale " << f << " makes a " << workW << "x" << workH
        << " picture too small to enlarge (less than 4x4 source pixels would be used)";
    throw ToolError(why.str());
  }
  *outW = w;
  *outH = h;
}

// Keeps the top-left width x height of an image (both even).
void cropTopLeft(Nv21Image* image, int width, int height) {
  Nv21Image out;
  out.width = width;
  out.height = height;
  out.stride = width;
  out.nv12 = image->nv12;
  out.data.resize(size_t(width) * (height + height / 2));
  for (int y = 0; y < height; ++y)
    std::memcpy(out.y() + size_t(y) * width, image->y() + size_t(y) * image->stride, width);
  for (int y = 0; y < height / 2; ++y)
    std::memcpy(out.uv() + size_t(y) * width, image->uv() + size_t(y) * image->stride, width);
  *image = std::move(out);
}

void processFile(const std::string& inPath, const std::string& outPath, const Options& o,
                 const Settings& s) {
  const Picture in = readInput(inPath, o);
  Region region;
  int workW = in.width, workH = in.height;
  if (!o.roi.empty()) {
    bool moved = false;
    region = parseRegion(o.roi, in.width, in.height, &moved);
    workW = (region.right - region.left + 1) & ~3;
    workH = (region.bottom - region.top + 1) & ~3;
    if (moved && !o.quiet)
      std::fprintf(stderr,
                   "kqupscale: region %s starts at %d,%d (4:2:0 colour needs an even corner)\n",
                   o.roi.c_str(), region.left, region.top);
  }
  if (workW < 4 || workH < 4) throw ToolError("'" + inPath + "' is smaller than 4x4 pixels");
  int64_t outW, outH;
  outputSize(o, workW, workH, &outW, &outH);
  checkOutputSize(outW, outH);
  // An odd-sized picture went in with its last column / row repeated. The
  // padded image is enlarged at the same scale and the output cut back to
  // the size asked for, so that the scale is the same across and down. (The
  // repeated pixels fall among the last three source pixels, which the warp
  // does not show.)
  int64_t fullW = outW, fullH = outH;
  if (o.roi.empty()) {
    fullW = (outW * in.image.width + in.width - 1) / in.width;
    fullH = (outH * in.image.height + in.height - 1) / in.height;
    fullW += fullW & 1;
    fullH += fullH & 1;
    checkOutputSize(fullW, fullH);
  }
  Nv21Image out;
  const double ms = upscale(in.image, region, int(fullW), int(fullH), s, &out);
  if (fullW != outW || fullH != outH) cropTopLeft(&out, int(outW), int(outH));
  writeOutput(outPath, out, o);
  if (!o.quiet) {
    std::printf("%s: %dx%d -> %s: %lldx%lld in %.1f ms (%.1f output MP/s)\n", inPath.c_str(), workW,
                workH, outPath.c_str(), static_cast<long long>(outW), static_cast<long long>(outH),
                ms, double(outW) * double(outH) / (ms * 1000.0));
  }
  if (o.timing) printStages();
}

int runDemo(const Options& o, const Settings& s) {
  ::mkdir(o.demoDir.c_str(), 0755);
  if (!isDirectory(o.demoDir)) throw ToolError("cannot create the demo folder '" + o.demoDir + "'");
  const int w = 640, h = 480, factor = 4;
  const Nv21Image input = makeDemoImage(w, h, false);
  const RgbaImage inputRgba = nvToRgba(input);
  writeFileAtomically(o.demoDir + "/demo_input.png", encodePng(inputRgba));

  Nv21Image bare, filtered;
  const Settings warpOnly{0, 0, 0.0f, s.threads, s.affinity};
  const double bareMs = upscale(input, Region{}, w * factor, h * factor, warpOnly, &bare);
  gStages.clear();
  const double ms = upscale(input, Region{}, w * factor, h * factor, s, &filtered);
  const RgbaImage bareRgba = nvToRgba(bare), filteredRgba = nvToRgba(filtered);
  writeFileAtomically(o.demoDir + "/demo_output.png", encodePng(filteredRgba));
  // Two crops: the printed card, and the colour patches beside the line
  // pairs and the zone plate.
  const RgbaImage text = makeComparison(inputRgba, bareRgba, filteredRgba, w / 16 * factor,
                                        h / 12 * factor, 300, 220, factor, 2);
  const RgbaImage detail = makeComparison(inputRgba, bareRgba, filteredRgba, 235 * factor,
                                          292 * factor, 300, 220, factor, 2);
  RgbaImage compare = text;
  compare.height = text.height + detail.height;
  compare.pixels.insert(compare.pixels.end(), detail.pixels.begin(), detail.pixels.end());
  writeFileAtomically(o.demoDir + "/demo_compare.png", encodePng(compare));

  const double mp = double(w * factor) * (h * factor) / 1e6;
  std::printf("demo: %dx%d -> %dx%d (x%d), threads %d\n", w, h, w * factor, h * factor, factor,
              s.threads);
  std::printf("  warp only:   %8.1f ms  %7.1f output MP/s\n", bareMs, mp / (bareMs / 1000.0));
  std::printf("  all filters: %8.1f ms  %7.1f output MP/s  (nr %d, chroma-nr %d, sharpen %.2f)\n",
              ms, mp / (ms / 1000.0), s.nr, s.chromaNr, s.sharpen);
  std::printf("  stages of the filtered run:\n");
  printStages();
  std::printf("wrote %s/demo_input.png, demo_output.png, demo_compare.png\n", o.demoDir.c_str());
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  Options o;
  CLI::App app{"kqupscale: enlarge NV12/NV21 camera images (PNG, JPEG or raw) with libKQUpScale"};
  app.footer(
      "Examples:\n"
      "  kqupscale --demo                        build a test image, enlarge it 4x, write PNGs\n"
      "  kqupscale photo.jpg -o big.png --scale 2\n"
      "  kqupscale frame.nv21 --size 1920x1080 -o big.nv21 --out-size 3840x2160\n"
      "  kqupscale photo.png -o crop.png --roi 100,80,640,480 --scale 3 --sharpen 1.0\n"
      "  kqupscale a.jpg b.jpg c.jpg -o outdir/ --threads 4 --timing");
  app.add_option("inputs", o.inputs, "input files: .png, .jpg, or raw NV12/NV21 with --size");
  app.add_option("-o,--output", o.output,
                 "output file (.png .jpg .yuv .nv12 .nv21), or a folder DIR/ (made when missing), "
                 "which several inputs need");
  auto* scaleOpt = app.add_option("--scale", o.scale,
                                  "enlargement factor per side (default 2; sides rounded to even)")
                       ->check(finiteRange(0.01, 64.0));
  app.add_option("--out-size", o.outSize, "output size WxH (even)")->excludes(scaleOpt);
  app.add_option("--roi", o.roi,
                 "region x,y,w,h of the input to enlarge (an odd x or y moves down to even)");
  app.add_option("--size", o.rawSize, "size WxH of raw NV12/NV21 input");
  app.add_option("--format", o.format,
                 "raw layout: nv12 or nv21 (default: from the extension, else nv21)")
      ->check(CLI::IsMember({"nv12", "nv21"}));
  app.add_option("--stride", o.stride, "row stride of raw input in bytes (default: width)")
      ->check(CLI::Range(1, 1 << 20));
  app.add_option("--nr", o.nr, "luma noise reduction 0-10 (default 3)")->check(CLI::Range(0, 10));
  app.add_option("--chroma-nr", o.chromaNr, "chroma noise reduction 0-10 (default 4)")
      ->check(CLI::Range(0, 10));
  app.add_option("--sharpen", o.sharpen, "sharpening strength, 0 = off (default 0.6)")
      ->check(finiteRange(0.0, 4.0));
  app.add_option("--threads", o.threads, "worker threads (default: CPU count, at most 8)")
      ->check(CLI::Range(1, 32));
  app.add_option("--affinity", o.affinity,
                 "CPU mask for the calling thread, e.g. 0x3 (default 0 = any)");
  app.add_option("--jpeg-quality", o.jpegQuality, "JPEG output quality (default 92)")
      ->check(CLI::Range(1, 100));
  app.add_flag("--timing", o.timing, "print per-stage durations from the library's stage hooks");
  auto* quietOpt = app.add_flag("-q,--quiet", o.quiet, "print nothing but errors");
  app.add_flag("-v,--verbose", o.verbose, "also print the library's information lines")
      ->excludes(quietOpt);
  auto* demoOpt = app.add_flag("--demo", o.demo, "run the built-in demo (no input needed)");
  app.add_option("--demo-dir", o.demoDir, "folder for the demo's pictures (default kqupscale-demo)")
      ->needs(demoOpt);
  app.set_version_flag("--version", std::string(KQUpScale_GetVersion()));

  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForVersion& e) {
    return app.exit(e);
  } catch (const CLI::ParseError& e) {
    std::string what = e.what();
    std::replace(what.begin(), what.end(), '\n', ' ');
    std::fprintf(stderr, "kqupscale: error: %s (see --help)\n", what.c_str());
    return 2;
  }

  // The level decides which library lines the sink shows; without either
  // switch it comes from KQ_LOG (errors only when unset).
  if (o.verbose) kqLogSetLevel(KQ_LOG_LEVEL_INFO);
  if (o.quiet) kqLogSetLevel(KQ_LOG_LEVEL_OFF);
  kqLogSetSink(logSink, nullptr);
  if (o.timing || o.demo) kqTimerSetReceiver(&kStageReceiver);
  if (o.threads == 0)
    o.threads = int(std::min(8u, std::max(1u, std::thread::hardware_concurrency())));

  try {
    char* end = nullptr;
    const long mask = std::strtol(o.affinity.c_str(), &end, 0);
    if (end == o.affinity.c_str() || *end != '\0' || mask < 0 || mask > 0x7FFFFFFF)
      throw ToolError("--affinity expects a CPU mask such as 0x3, got '" + o.affinity + "'");
    const Settings s{o.nr, o.chromaNr, o.sharpen, o.threads, int(mask)};
    if (o.demo) return runDemo(o, s);
    if (o.inputs.empty()) throw ToolError("no input file (try --demo, or --help)");
    if (o.output.empty())
      throw ToolError("no output given (-o FILE, or -o FOLDER for several inputs)");

    // Everything that can be wrong with the options and the output paths is
    // found before the first file is read.
    int w = 0, h = 0;
    if (!o.rawSize.empty() && !parseSize(o.rawSize, &w, &h))
      throw ToolError("--size expects WxH (1 to 65535 each), got '" + o.rawSize + "'");
    if (!o.outSize.empty()) {
      if (!parseSize(o.outSize, &w, &h))
        throw ToolError("--out-size expects WxH (1 to 65535 each), got '" + o.outSize + "'");
      if (w % 2 != 0 || h % 2 != 0)
        throw ToolError("4:2:0 output needs an even width and height, got " + o.outSize);
      checkOutputSize(w, h);
    }
    // -o names a folder when it ends in '/' or is one; a missing folder is
    // created (as mkdir -p), once nothing else is wrong.
    const bool toFolder = o.output.back() == '/' || isDirectory(o.output);
    const size_t count = o.inputs.size();
    if (count > 1 && !toFolder)
      throw ToolError(std::to_string(count) + " inputs need an output folder, and '" + o.output +
                      "' is not one (give -o DIR/; it is created when missing)");
    std::vector<std::string> outputs;
    for (const std::string& in : o.inputs) {
      std::string ext = extensionOf(in);
      if (kindFromExtension(in) == FileKind::kUnknown) ext = ".png";
      outputs.push_back(toFolder ? joinPath(o.output, baseName(in) + "_kq" + ext) : o.output);
      checkOutputName(outputs.back());
      // Two inputs of one name (a/x.jpg, b/x.jpg) would overwrite each other.
      for (size_t j = 0; j + 1 < outputs.size(); ++j)
        if (outputs[j] == outputs.back())
          throw ToolError("'" + o.inputs[j] + "' and '" + in + "' would both be written to '" +
                          outputs.back() + "' (rename one, or run them separately)");
    }
    if (toFolder) makeFolders(o.output);
    for (const std::string& out : outputs) checkOutputFolder(out);

    // In a batch, an input that fails is reported and skipped; the outputs
    // of the others are written, and the last line names the failures.
    std::vector<std::string> failed;
    for (size_t i = 0; i < count; ++i) {
      const std::string& in = o.inputs[i];
      if (count > 1 && !o.quiet) std::fprintf(stderr, "[%zu/%zu] %s\n", i + 1, count, in.c_str());
      try {
        processFile(in, outputs[i], o, s);
        continue;
      } catch (const ToolError& e) {
        if (count == 1) throw;
        // The line names the input unless the message already does.
        const std::string what = e.what();
        const std::string name = what.find(in) == std::string::npos ? in + ": " : "";
        std::fprintf(stderr, "kqupscale: error: %s%s\n", name.c_str(), what.c_str());
      } catch (const std::bad_alloc&) {
        if (count == 1) throw;
        std::fprintf(stderr, "kqupscale: error: %s: out of memory\n", in.c_str());
      }
      failed.push_back(in);
    }
    if (failed.empty()) {
      if (count > 1 && !o.quiet)
        std::fprintf(stderr, "kqupscale: %zu of %zu inputs written to %s\n", count, count,
                     o.output.c_str());
      return 0;
    }
    std::string names;
    for (const std::string& in : failed) names += (names.empty() ? "" : ", ") + in;
    std::string written;
    if (failed.size() < count)
      written = "; the other " + std::to_string(count - failed.size()) + " written to " + o.output;
    std::fprintf(stderr, "kqupscale: error: %zu of %zu inputs failed: %s%s\n", failed.size(), count,
                 names.c_str(), written.c_str());
    return 1;
  } catch (const ToolError& e) {
    std::fprintf(stderr, "kqupscale: error: %s\n", e.what());
    return 1;
  } catch (const std::bad_alloc&) {
    std::fprintf(stderr, "kqupscale: error: out of memory\n");
    return 1;
  }
}
