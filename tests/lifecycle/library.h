/* The artefact as a host has it: loaded by its file name, its routines looked up, unloaded. */
#ifndef LIBRARY_H
#define LIBRARY_H

#include <kvl/kvl.h>

#include "../support/load_library.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Every export, under its own name. */
typedef struct {
  void* handle;
#define KVL_EXPORT(name) __typeof__(&name) name;
#include "exports.inc"
#undef KVL_EXPORT
} Library;

/* 1, or 0 when the file does not load or lacks an export, after a line on standard error. */
int load_library(const char* file, Library* library);
void unload_library(Library* library);

/* What the process holds now. */
int thread_count(void);
/* Open files on Linux, handles on Windows. */
int handle_count(void);
long resident_kilobytes(void);

#ifdef __cplusplus
}
#endif

#endif
