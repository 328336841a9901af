#ifndef _WIN32
#define _GNU_SOURCE /* RTLD_NOLOAD */
#include <dlfcn.h>
#else
#include <windows.h>
#endif
#include <stdio.h>
#include <string.h>

#include "load_library.h"

#ifdef _WIN32
void* open_library(const char* file) {
  const HMODULE library = LoadLibraryA(file);
  if (!library) fprintf(stderr, "%s: Windows error %lu\n", file, GetLastError());
  return library;
}

Function find_function(void* library, const char* name) {
  return (Function)GetProcAddress(library, name);
}

void close_library(void* library) {
  FreeLibrary(library);
}

int is_loaded(const char* file) {
  return GetModuleHandleA(file) != NULL;
}
#else
void* open_library(const char* file) {
  void* library = dlopen(file, RTLD_NOW | RTLD_LOCAL);
  if (!library) fprintf(stderr, "%s\n", dlerror());
  return library;
}

Function find_function(void* library, const char* name) {
  void* address = dlsym(library, name);
  Function function;
  memcpy(&function, &address, sizeof function); /* ISO C has no cast between the two */
  return function;
}

void close_library(void* library) {
  dlclose(library);
}

int is_loaded(const char* file) {
  void* library = dlopen(file, RTLD_NOW | RTLD_NOLOAD);
  if (library) dlclose(library);
  return library != NULL;
}
#endif
