/* The lines of tests/digests.txt. */
#ifndef LINES_H
#define LINES_H

#include "digest.h"

typedef struct {
  const DigestCase* of;
  unsigned size;
  int from_level; /* of the cases with several results, where this one begins; else level_scalar */
  int is_known;   /* there is an expected digest */
  int is_checked; /* some run has had it */
  uint64_t expected;
  uint64_t actual; /* the first other digest, of `others` runs, the first of which was `first` */
  int others;
  char first[64];
} Line;

typedef struct {
  Line* all;
  int count;
  int runs; /* so far */
  int failures;
} Lines;

/* All lines of all cases, in the order of the file. */
Lines make_lines(const DigestCase* const* families, int family_count);

/* Reads the expected digests; each difference between the file's lines and these is a failure. */
void read_expected(Lines* lines, const char* path);
int write_lines(const Lines* lines, const char* path);

/* The line that holds for a case and a size at a level. */
Line* find_line(const Lines* lines, const DigestCase* of, unsigned size, int level);

/* Takes a digest; where none was expected, the first is. */
void check_digest(Lines* lines, Line* line, uint64_t digest, const char* run);

/* Prints every line that differed, that no run has had although the machine has its level, or that
   equals one of another case or size of its export, and every case whose levels differ at no size. */
void report(Lines* lines, int best_level);

#endif
