#include "correlation/product_vector.h"

namespace kvl {

void productsAvx2(const ProductRows& rows, int shifts, uint64_t* sums) {
  products(rows, shifts, sums);
}

}  // namespace kvl
