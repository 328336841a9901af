// The row kernel of the colour key.
#pragma once

#include <cstdint>

#include "alpha/colour_key.h"
#include "alpha/hue_spill.h"
#include "core/instruction_set.h"

namespace kvl {

struct ColourKey {
  KeyColour key;
  // Squared distances from the key: transparent up to `low`, opaque from `high` on.
  int32_t low;
  int32_t high;
  HueSpillTable spill;
  // What vector bodies take: the key is a colour of bytes, so that nothing is beyond 32 bits, and
  // the tolerances are not beyond reason.
  bool isPlain;
  SpillRamp ramp;
};

ColourKey makeColourKey(KeyColour key, KeyTolerances tolerances, int32_t spillStrength);

struct ColourKeyKernels {
  // Writes `count` samples of the mask and takes the spill out of the pixels that are not
  // transparent. Only the scalar body takes keys that are not plain.
  void (*row)(uint8_t* mask, uint8_t* pixels, int32_t count, const ColourKey& key);
};

ColourKeyKernels colourKeyKernels(InstructionSet level);
void addColourKeyAvx2(ColourKeyKernels& kernels);

}  // namespace kvl
