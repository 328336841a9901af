/* The library that ships, as hosts have it: loaded by its file name. */
#ifndef LOAD_LIBRARY_H
#define LOAD_LIBRARY_H

#ifdef __cplusplus
extern "C" {
#endif

typedef void (*Function)(void);

/* A null, after a line on standard error, when the file does not load. */
void* open_library(const char* file);
/* A null when the library has no such function. */
Function find_function(void* library, const char* name);
void close_library(void* library);
/* Whether the process still has it. */
int is_loaded(const char* file);

#ifdef __cplusplus
}
#endif

#endif
