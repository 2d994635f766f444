// kqupscale_jni.cpp - the native half of kqupscale.KQUpScale: direct
// ByteBuffer planes turned into the shared binding's frames, refusals
// thrown as IllegalArgumentException before the library is called.
#include <KQUpScale.h>
#include <jni.h>

#include <new>
#include <string>

#include "binding_call.h"
#include "kqupscale_KQUpScale.h"

namespace {

// Layout of the geometry array KQUpScale.Frame passes: width, height, then
// position, remaining, row stride, pixel stride for Y, U and V.
constexpr int kGeometrySize = 14;
constexpr int kPlaneFields = 4;

void throwJava(JNIEnv* env, const char* type, const std::string& message) {
  jclass cls = env->FindClass(type);
  if (cls != nullptr) env->ThrowNew(cls, message.c_str());
}

bool toFrame(JNIEnv* env, const char* which, jobject y, jobject u, jobject v, jintArray geometry,
             kqbind::Frame* frame) {
  if (geometry == nullptr || env->GetArrayLength(geometry) != kGeometrySize) {
    throwJava(env, "java/lang/IllegalArgumentException", "malformed frame geometry");
    return false;
  }
  jint g[kGeometrySize];
  env->GetIntArrayRegion(geometry, 0, kGeometrySize, g);
  frame->width = g[0];
  frame->height = g[1];
  const char* names[3] = {"Y", "U", "V"};
  jobject buffers[3] = {y, u, v};
  kqbind::Plane* planes[3] = {&frame->y, &frame->u, &frame->v};
  for (int i = 0; i < 3; ++i) {
    void* base = buffers[i] != nullptr ? env->GetDirectBufferAddress(buffers[i]) : nullptr;
    if (base == nullptr) {
      throwJava(env, "java/lang/IllegalArgumentException",
                std::string(which) + " " + names[i] +
                    " buffer is not a direct ByteBuffer (ByteBuffer.allocateDirect, or a plane "
                    "of an Image)");
      return false;
    }
    const jint* p = g + 2 + kPlaneFields * i;
    planes[i]->data = static_cast<uint8_t*>(base) + p[0];
    planes[i]->bytes = p[1];
    planes[i]->rowStride = p[2];
    planes[i]->pixelStride = p[3];
  }
  return true;
}

}  // namespace

extern "C" {

JNIEXPORT jstring JNICALL Java_kqupscale_KQUpScale_version(JNIEnv* env, jclass) {
  return env->NewStringUTF(KQUpScale_GetVersion());
}

JNIEXPORT void JNICALL Java_kqupscale_KQUpScale_nativeUpscale(
    JNIEnv* env, jclass, jobject inY, jobject inU, jobject inV, jintArray inGeometry, jobject outY,
    jobject outU, jobject outV, jintArray outGeometry, jintArray regionArray, jint noiseReduction,
    jint chromaNoiseReduction, jfloat sharpening, jint threads) {
  kqbind::Frame in, out;
  if (!toFrame(env, "input", inY, inU, inV, inGeometry, &in)) return;
  if (!toFrame(env, "output", outY, outU, outV, outGeometry, &out)) return;
  kqbind::Region region;
  if (regionArray != nullptr) {
    jint r[4];
    env->GetIntArrayRegion(regionArray, 0, 4, r);
    if (env->ExceptionCheck()) return;
    region.whole = false;
    region.x = r[0];
    region.y = r[1];
    region.width = r[2];
    region.height = r[3];
  }
  const kqbind::Settings settings{noiseReduction, chromaNoiseReduction, sharpening, threads};
  const std::string problem = kqbind::checkCall(in, out, region, settings);
  if (!problem.empty()) {
    throwJava(env, "java/lang/IllegalArgumentException", problem);
    return;
  }
  try {
    kqbind::runCall(in, out, region, settings);
  } catch (const std::bad_alloc&) {
    throwJava(env, "java/lang/OutOfMemoryError", "no memory for a scratch chroma plane");
  }
}

}  // extern "C"
