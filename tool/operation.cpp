#include "operation.h"

#include <algorithm>

namespace kvl::tool {
namespace {

// Built on first use, because the objects that register run before main in no fixed order.
std::vector<OperationEntry>& registry() {
  static std::vector<OperationEntry> entries;
  return entries;
}

}  // namespace

bool Operation::keepsAlpha() const {
  return false;
}

const char* Operation::secondInput() const {
  return nullptr;
}

bool Operation::wantsSecondInput() const {
  return secondInput() != nullptr;
}

void Operation::useSecond(const Dib&) {}

void Operation::prepare(const Dib& frame, Dib& result) {
  result = frame;
}

void Operation::finish(Dib&) {}

void Operation::conclude() {}

int64_t Operation::pixels(const Dib& frame) const {
  return int64_t{frame.size().width} * frame.size().height;
}

void registerOperation(OperationEntry entry) {
  registry().push_back(std::move(entry));
}

std::vector<OperationEntry> operations() {
  std::vector<OperationEntry> sorted = registry();
  std::ranges::sort(sorted, {}, &OperationEntry::name);
  return sorted;
}

}  // namespace kvl::tool
