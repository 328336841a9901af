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

  // Whether all that a kernel computes stays within 32 bits: the key is a colour of bytes and the
  // tolerances are not beyond reason.
  bool isPlain() const;
};

struct ColourKeyKernels {
  // Writes `count` samples of the mask and takes the spill out of the pixels that are not
  // transparent. Vector bodies take plain keys only.
  void (*row)(uint8_t* mask, uint8_t* pixels, int32_t count, const ColourKey& key);
};

ColourKeyKernels colourKeyKernels(InstructionSet level);
void addColourKeyAvx2(ColourKeyKernels& kernels);

}  // namespace kvl
