/* What the cases are run through: the library that ships, loaded by name, or the static one. */
#ifndef LIBRARY_H
#define LIBRARY_H

#include "digest.h"

#ifdef __cplusplus
extern "C" {
#endif

Function find_static(const char* name);

/* Names of the exports, ended by a null. */
extern const char* const export_names[];

/* Initialises the static library and holds it at a level; 0 where the machine lacks that. */
int set_level(int level);

void set_team(int threads);
int team_size(void);

#ifdef __cplusplus
}
#endif

#endif
