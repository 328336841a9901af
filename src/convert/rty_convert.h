#pragma once

#include <cstdint>

#include "kvl/kvl.h"

namespace kvl {

int32_t rtyConvert(const RtyConvertRecord* record, const uint8_t* source, uint8_t* planes);

}  // namespace kvl
