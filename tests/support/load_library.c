#ifndef _WIN32
#define _GNU_SOURCE /* RTLD_NOLOAD */
#include <dlfcn.h>
#else
#include <windows.h>
#endif
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "load_library.h"

#ifdef _WIN32
static HMODULE library;

void load_library(const char* name) {
  library = LoadLibraryA(name);
  if (library) return;
  fprintf(stderr, "%s: Windows error %lu\n", name, GetLastError());
  exit(2);
}

Function find_loaded(const char* name) {
  return (Function)GetProcAddress(library, name);
}

int unload_library(const char* name) {
  FreeLibrary(library);
  return !GetModuleHandleA(name);
}
#else
static void* library;

void load_library(const char* name) {
  library = dlopen(name, RTLD_NOW | RTLD_LOCAL);
  if (library) return;
  fprintf(stderr, "%s\n", dlerror());
  exit(2);
}

Function find_loaded(const char* name) {
  void* address = dlsym(library, name);
  Function function;
  memcpy(&function, &address, sizeof function); /* ISO C has no cast between the two */
  return function;
}

int unload_library(const char* name) {
  dlclose(library);
  return !dlopen(name, RTLD_NOW | RTLD_NOLOAD);
}
#endif
