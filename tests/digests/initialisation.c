/* The library's own two exports. */
#include "library.h"

/* Twice, because hosts may. The team is the machine's affair, and has a thread or more. */
static void initialise(Run* run) {
  EXPORT(InitKVLWrapper);
  int first;
  call();
  first = team_size();
  call();
  keep_int(run, first >= 1 && team_size() == first);
}

static void threads(Run* run) {
  EXPORT(KVL_GetNumOpenMPThreads);
  keep_int(run, call() == team_size());
}

const DigestCase library_cases[] = {
    {"InitKVLWrapper", "called twice", initialise, {0}, 0, size_small, 1},
    {"KVL_GetNumOpenMPThreads", "equals the team", threads, {0}, 0, size_small, 1},
    {NULL, NULL, NULL, {0}, 0, 0, 0},
};
