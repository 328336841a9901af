// The static library: its functions by name, and its levels.
#include "library.h"

#include <omp.h>

#include "core/initialise.h"
#include "core/instruction_set.h"

static_assert(static_cast<int>(kvl::InstructionSet::ssse3) == level_ssse3);
static_assert(static_cast<int>(kvl::InstructionSet::avx2) == level_avx2);

namespace {

struct Export {
  const char* name;
  Function function;
};

const Export exports[] = {
#define KVL_EXPORT(name) {#name, reinterpret_cast<Function>(name)},
#include "exports.inc"
#undef KVL_EXPORT
};

}  // namespace

const char* const export_names[] = {
#define KVL_EXPORT(name) #name,
#include "exports.inc"
#undef KVL_EXPORT
    nullptr};

Function find_static(const char* name) {
  for (const Export& one : exports) {
    if (strcmp(one.name, name) == 0) return one.function;
  }
  return nullptr;
}

int set_level(int level) {
  static const bool initialised = (kvl::initialise(), true);
  const auto wanted = static_cast<kvl::InstructionSet>(level);
  kvl::limitInstructionSet(wanted);
  return initialised && kvl::instructionSet() == wanted;
}

void set_team(int threads) {
  omp_set_num_threads(threads);
}

int team_size() {
  return omp_get_max_threads();
}
