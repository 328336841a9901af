/* The library that ships, as hosts have it: loaded by its file name. */
#ifndef LOAD_LIBRARY_H
#define LOAD_LIBRARY_H

#ifdef __cplusplus
extern "C" {
#endif

typedef void (*Function)(void);

/* Ends the program when the library does not load. One library at a time. */
void load_library(const char* name);

/* A null when it has no such function. */
Function find_loaded(const char* name);

/* 0 when the library stays behind. */
int unload_library(const char* name);

#ifdef __cplusplus
}
#endif

#endif
