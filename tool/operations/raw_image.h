// What the operations share whose routines take rows without a header.
#pragma once

#include <optional>

#include "kvl/kvl.h"
#include "operation.h"
#include "options.h"

namespace kvl::tool {

class RawImageOperation : public Operation {
 public:
  // Sizes `result`. Throws Error for a picture with sides beyond the library's limit.
  void prepare(const Dib& frame, Dib& result) override;
};

// A blur around a centre, with `--center X,Y` and one more number, which the derived class adds.
class CentredBlur : public RawImageOperation {
 public:
  using Routine = decltype(&KVL_BlurZoom);
  CentredBlur(Routine routine, double amount) : routine_(routine), amount_(amount) {}

  void addOptions(CLI::App& command) override;
  // Throws Error also for a centre that the library does not take.
  void prepare(const Dib& frame, Dib& result) override;
  void run(const Dib& frame, Dib& result) override;

 protected:
  virtual void addAmount(CLI::App& command, double& amount) = 0;

 private:
  Routine routine_;
  double amount_;
  std::optional<Point> centre_;
  Point centreInMemory_{};
};

}  // namespace kvl::tool
