// version.h - the upscaler's and the base library's version strings.
#pragma once

// "KQBase v1.12.0 (<platform>/<bits>, <date> <time>, <revision>)".
const char* kqBaseGetVersion();

// The upscaler's own string, as returned by KQUpScale_GetVersion().
const char* kqUpScaleVersion();
