#include "correlation/grey_row_vector.h"

namespace kvl {

void greyRowSsse3(const uint8_t* in, uint8_t* out, ptrdiff_t count) {
  greyRow(in, out, count);
}

}  // namespace kvl
