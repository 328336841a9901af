// What the operations share whose routines take rows without a header.
#pragma once

#include <optional>

#include "operation.h"
#include "options.h"

namespace kvl::tool {

class RawImageOperation : public Operation {
 public:
  // Sizes `result`. Throws Error for a picture with sides beyond the library's limit.
  void prepare(const Dib& frame, Dib& result) override;
};

// Adds `--center X,Y`.
void addCentre(CLI::App& command, std::optional<Point>& centre);

// The centre that the library is to be given, its y counting the rows in memory, which begin with
// the picture's lowest. The middle of the picture stands in for an empty one. Throws Error for a
// centre that the library does not take.
Point centreInMemory(const std::optional<Point>& centre, Size size);

}  // namespace kvl::tool
