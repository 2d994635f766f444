// stages.cpp - the table of a call's stages.
#include "runtime/stages.h"

const KQStageInfo kKqStages[] = {
    {KQStage::kIntake, 0, "kqTakeYUVPlanes", "input planes split into luma, U and V"},
    {KQStage::kHomographies, 0, "kqCreateScalingHomographies", "scaling matrices"},
    {KQStage::kLumaWarp, 0, "warpAll", "luma warp (bilinear)"},
    {KQStage::kChromaWarp, 0, "warpAll - chroma", "chroma warp (nearest sample)"},
    {KQStage::kFilters, 0, "kqUpScalePostFilter", "filters, all three"},
    {KQStage::kLumaNoise, 1, "Noise reduction", "luma noise filter"},
    {KQStage::kNoiseInterior, 2, "paapilu", "inner rows, side strips and their blend"},
    {KQStage::kNoiseBorder, 2, "pilu reunat c", "top and bottom border rows"},
    {KQStage::kNoiseBlend, 2, "pilun painotus", "blend of the border rows"},
    {KQStage::kSharpening, 1, "Sharpening", "sharpening"},
    {KQStage::kSharpenOuter, 2, "kqImageSharpening uusi neon", "sharpening rows (outer timer)"},
    {KQStage::kSharpenRows, 2, "kqImageSharpening", "sharpening rows"},
    {KQStage::kChromaNoise, 1, "Chroma noise reduction", "chroma noise filter"},
    {KQStage::kChromaPass1, 2, "kromafiltteri 1 iteraatio", "pass 1: full to half size"},
    {KQStage::kChromaPass2, 2, "kromafiltteri 2 iteraatio", "pass 2: at half size"},
    {KQStage::kChromaPass3, 2, "kromafiltteri 3 iteraatio",
     "pass 3: half to full size along luma edges"},
    {KQStage::kOutput, 0, "kqCreateFinalUpScaleOutput", "output assembly"},
    {KQStage::kLumaSpread, 1, "kqAddPaddingToYChannel", "luma rows spread to the output row stride"},
    {KQStage::kChromaInterleave, 1, "kqSetUVData", "U and V interleaved into the output"},
};
const size_t kKqStageCount = sizeof kKqStages / sizeof kKqStages[0];

const KQStageInfo* kqStageInfo(KQStage stage) {
  for (const KQStageInfo& s : kKqStages)
    if (s.id == stage) return &s;
  return nullptr;
}
