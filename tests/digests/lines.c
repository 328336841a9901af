#include "lines.h"

#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>

static const char* const level_names[level_count] = {"scalar", "sse2", "ssse3", "sse41", "avx2"};

static const char heading[] =
    "# Digests of everything that each export writes, padding and status included, over fixed\n"
    "# inputs: digest, level, export, parameters, class of sizes. The level is `every` where all\n"
    "# give one result; else a line holds from its level on, up to the level of the next line.\n"
    "# Small is a list of sizes from 1 x 1 on, odd 127 x 61, large 461 x 263. Written by\n"
    "# digests --write; CONTRIBUTING.md tells when.\n";

static const char* size_name(unsigned size) {
  return size == size_small ? "small" : size == size_odd ? "odd" : "large";
}

static const char* level_name(const Line* line) {
  return line->of->changes ? level_names[line->from_level] : "every";
}

/* What the file has behind the digest. */
static void name_line(const Line* line, char* name, size_t size) {
  snprintf(name, size, "%-6s  %s, %s, %s", level_name(line), line->of->export_name, line->of->what,
           size_name(line->size));
}

static void add_lines(Lines* lines, const DigestCase* of) {
  unsigned size;
  int level;
  for (size = size_small; size <= size_large; size *= 2) {
    if (!(of->sizes & size)) continue;
    for (level = 0; level < level_count; ++level) {
      Line* line;
      if (level != level_scalar && !(of->changes & 1u << level)) continue;
      lines->all = realloc(lines->all, (size_t)(lines->count + 1) * sizeof *lines->all);
      if (!lines->all) exit(2);
      line = &lines->all[lines->count++];
      memset(line, 0, sizeof *line);
      line->of = of;
      line->size = size;
      line->from_level = level;
    }
  }
}

Lines make_lines(const DigestCase* const* families, int family_count) {
  Lines lines;
  const DigestCase* one;
  int f;
  memset(&lines, 0, sizeof lines);
  for (f = 0; f < family_count; ++f) {
    for (one = families[f]; one->export_name; ++one) add_lines(&lines, one);
  }
  return lines;
}

static void fail(Lines* lines, const char* what, const char* name) {
  printf("%s: %s\n", what, name);
  ++lines->failures;
}

void read_expected(Lines* lines, const char* path) {
  FILE* file = fopen(path, "r");
  char text[256], name[256];
  int i;
  if (!file) {
    fail(lines, "cannot be read", path);
    return;
  }
  while (fgets(text, sizeof text, file)) {
    text[strcspn(text, "\r\n")] = 0;
    if (text[0] == '#' || !text[0]) continue;
    for (i = 0; i < lines->count; ++i) {
      name_line(&lines->all[i], name, sizeof name);
      if (strlen(text) > 18 && !strcmp(text + 18, name)) break;
    }
    if (i == lines->count || lines->all[i].is_known) {
      fail(lines, i == lines->count ? "no such case" : "twice in the file", text);
    } else {
      lines->all[i].expected = strtoull(text, NULL, 16);
      lines->all[i].is_known = 1;
    }
  }
  fclose(file);
  for (i = 0; i < lines->count; ++i) {
    name_line(&lines->all[i], name, sizeof name);
    if (!lines->all[i].is_known) fail(lines, "not in the file", name);
  }
}

int write_lines(const Lines* lines, const char* path) {
  FILE* file = fopen(path, "wb");
  char name[256];
  int i, done;
  if (!file) return 0;
  fputs(heading, file);
  for (i = 0; i < lines->count; ++i) {
    name_line(&lines->all[i], name, sizeof name);
    fprintf(file, "%016" PRIx64 "  %s\n", lines->all[i].expected, name);
  }
  done = !ferror(file);
  return fclose(file) == 0 && done;
}

Line* find_line(const Lines* lines, const DigestCase* of, unsigned size, int level) {
  Line* found = NULL;
  int i;
  for (i = 0; i < lines->count; ++i) {
    Line* line = &lines->all[i];
    if (line->of == of && line->size == size && line->from_level <= level) found = line;
  }
  return found;
}

void check_digest(Lines* lines, Line* line, uint64_t digest, const char* run) {
  (void)lines;
  line->is_checked = 1;
  if (!line->is_known) {
    line->is_known = 1;
    line->expected = digest;
  }
  if (line->expected == digest) return;
  if (line->others++ == 0) {
    line->actual = digest;
    snprintf(line->first, sizeof line->first, "%s", run);
  }
}

/* A further result of the case and size of the line before. */
static int is_other_level(const Line* line) {
  return line->from_level != level_scalar;
}

void report(Lines* lines, int best_level) {
  char name[256], other[256];
  int differs = 0;
  int i, k;
  for (i = 0; i < lines->count; ++i) {
    const Line* line = &lines->all[i];
    name_line(line, name, sizeof name);
    if (!line->is_checked && line->from_level <= best_level) fail(lines, "was never run", name);
    if (line->others > 0) {
      ++lines->failures;
      printf("differs: %s\n         expected %016" PRIx64 ", got %016" PRIx64
             " (%d of %d runs differ, first %s)\n",
             name, line->expected, line->actual, line->others, lines->runs, line->first);
    }
    if (is_other_level(line)) {
      differs = differs || line->expected != line[-1].expected;
      if (i + 1 == lines->count || lines->all[i + 1].of != line->of) {
        if (!differs) fail(lines, "levels do not differ", name);
        differs = 0;
      }
      continue;
    }
    for (k = 0; k < i; ++k) {
      const Line* before = &lines->all[k];
      if (before->expected != line->expected || is_other_level(before) ||
          strcmp(before->of->export_name, line->of->export_name) != 0) {
        continue;
      }
      name_line(before, other, sizeof other);
      fail(lines, "same digest", name);
      printf("        and: %s\n", other);
    }
  }
}
