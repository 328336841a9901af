/*
 * Recomputes the digests of tests/digests.txt, with teams of several sizes: through the library
 * that ships, before and after InitKVLWrapper, and through the static one at the instruction levels
 * between, as far as the machine has them.
 *
 *   digests FILE LIBRARY            0 when all agree; prints each line that differs
 *   digests FILE LIBRARY --write    writes the file anew, if the runs agree with each other
 *   digests FILE LIBRARY --brief    with teams of 1 and 3 only, for slow builds
 */
#include <stdio.h>
#include <stdlib.h>

#include "library.h"
#include "lines.h"

static const DigestCase* const families[] = {
    alpha_cases,   blur_cases,   convert_cases, correlation_cases, halving_cases,    jpeg_cases,
    library_cases, resize_cases, sharpen_cases, warp_cases,        yuv_to_rgb_cases,
};
enum { family_count = sizeof families / sizeof *families };

/* Blocks of vector bodies have 8, 16 and 32 pixels, of frames that are halved up to 64. */
static const int32_t small_sizes[][2] = {{1, 1},  {1, 7},  {9, 1},  {2, 2},   {7, 4},
                                         {16, 5}, {17, 9}, {31, 3}, {33, 12}, {66, 10}};
static const int32_t odd_size[][2] = {{127, 61}};
static const int32_t large_size[][2] = {{461, 263}};

static Run run;
static Lines lines;
static void* shipped;

static Function find_shipped(const char* name) {
  return find_function(shipped, name);
}
static int is_initialised;

static uint64_t digest_of(const DigestCase* one, unsigned size_class, const char* pass) {
  const int32_t(*sizes)[2] = size_class == size_small ? small_sizes
                             : size_class == size_odd ? odd_size
                                                      : large_size;
  const int count = size_class == size_small ? (int)(sizeof small_sizes / sizeof *small_sizes) : 1;
  uint64_t digest = 0;
  int changed = 0;
  int i;
  run.p = one->p;
  for (i = 0; i < count; ++i) {
    run.width = sizes[i][0];
    run.height = sizes[i][1];
    run.used = 0;
    run.seed = UINT64_C(0x9E3779B97F4A7C15) * (uint64_t)(run.width * 1000 + run.height);
    run.values = 0;
    run.untouched = 0;
    one->run(&run);
    if (run.watches) changed |= run.untouched != mix(0, run.arena, run.used);
    digest = mix(digest, run.arena, run.used) ^ run.values;
  }
  if (run.watches && changed == one->refuses) {
    printf("%s: %s, %s (%s)\n", changed ? "a refused call writes" : "a call does nothing",
           one->export_name, one->what, pass);
    ++lines.failures;
  }
  return digest;
}

/* Every case of every size at one level, with teams of all sizes. */
static void run_all(Function (*find)(const char*), const char* which, int level, int is_brief) {
  static const int teams[] = {1, 2, 3, 7};
  size_t t;
  run.find = find;
  for (t = 0; t < sizeof teams / sizeof *teams; ++t) {
    char pass[64];
    const DigestCase* one;
    int f;
    if (is_brief && teams[t] != 1 && teams[t] != 3) continue;
    snprintf(pass, sizeof pass, "%s, team of %d", which, teams[t]);
    set_team(teams[t]);
    if (team_size() != teams[t]) {
      printf("there is no team of %d\n", teams[t]);
      ++lines.failures;
    }
    run.watches = t == 0;
    ++lines.runs;
    for (f = 0; f < family_count; ++f) {
      for (one = families[f]; one->export_name; ++one) {
        const int initialises = !strcmp(one->export_name, "InitKVLWrapper");
        unsigned size;
        if (initialises && !is_initialised) continue;
        run.function = find(one->export_name);
        if (!run.function) {
          printf("the library lacks %s\n", one->export_name);
          exit(1);
        }
        for (size = size_small; size <= size_large; size *= 2) {
          if (!(one->sizes & size)) continue;
          set_team(teams[t]); /* initialisation sets another */
          check_digest(&lines, find_line(&lines, one, size, level), digest_of(one, size, pass),
                       pass);
        }
      }
    }
  }
}

static void check_that_all_exports_have_cases(void) {
  int e, i;
  for (e = 0; export_names[e]; ++e) {
    for (i = 0; i < lines.count; ++i) {
      if (!strcmp(lines.all[i].of->export_name, export_names[e])) break;
    }
    if (i < lines.count) continue;
    printf("no case: %s\n", export_names[e]);
    ++lines.failures;
  }
}

int main(int argc, char** argv) {
  static const char* const names[level_count] = {"level scalar", "level sse2", "level ssse3",
                                                 "level sse41", "level avx2"};
  const int writes = argc == 4 && !strcmp(argv[3], "--write");
  const int is_brief = argc == 4 && !strcmp(argv[3], "--brief");
  int level, best = level_scalar;
  if (argc != 3 && !writes && !is_brief) {
    fprintf(stderr, "usage: digests FILE LIBRARY [--write | --brief]\n");
    return 2;
  }
  run.arena = malloc(24 << 20);
  if (!run.arena) return 2;
  lines = make_lines(families, family_count);
  check_that_all_exports_have_cases();
  if (!writes) read_expected(&lines, argv[1]);

  /* The library that ships shows the lowest and the highest level, the static one those between. */
  shipped = open_library(argv[2]);
  if (!shipped) return 2;
  run_all(find_shipped, "before InitKVLWrapper", level_scalar, is_brief);
  is_initialised = 1;
  for (level = level_scalar; level < level_count; ++level) {
    if (set_level(level)) best = level;
  }
  for (level = level_scalar + 1; level < best; ++level) {
    if (set_level(level)) run_all(find_static, names[level], level, is_brief);
  }
  find_shipped("InitKVLWrapper")();
  run_all(find_shipped, "after InitKVLWrapper", best, is_brief);
  close_library(shipped);
  if (is_loaded(argv[2])) {
    printf("the library is still loaded\n");
    ++lines.failures;
  }

  report(&lines, best);
  printf("%d lines, %d runs up to %s: %d failures\n", lines.count, lines.runs, names[best],
         lines.failures);
  if (lines.failures > 0) return 1;
  if (!writes) return 0;
  if (best != level_avx2) {
    fprintf(stderr, "digests: not written, because this machine lacks levels\n");
    return 1;
  }
  if (write_lines(&lines, argv[1])) return 0;
  fprintf(stderr, "digests: %s cannot be written\n", argv[1]);
  return 1;
}
