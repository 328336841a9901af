#ifndef _WIN32
#define _POSIX_C_SOURCE 200809L
#include <dirent.h>
#include <unistd.h>
#endif
#include "library.h"

#include <stdio.h>
#include <string.h>

#ifdef _WIN32
/* After windows.h, which kvl.h includes. */
#include <psapi.h>
#include <tlhelp32.h>

int thread_count(void) {
  const HANDLE all = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
  THREADENTRY32 thread;
  int count = 0;
  BOOL more;
  thread.dwSize = sizeof thread;
  for (more = Thread32First(all, &thread); more; more = Thread32Next(all, &thread)) {
    count += thread.th32OwnerProcessID == GetCurrentProcessId();
  }
  CloseHandle(all);
  return count;
}
int handle_count(void) {
  DWORD count = 0;
  GetProcessHandleCount(GetCurrentProcess(), &count);
  return (int)count;
}
long resident_kilobytes(void) {
  PROCESS_MEMORY_COUNTERS memory;
  memory.cb = sizeof memory;
  GetProcessMemoryInfo(GetCurrentProcess(), &memory, sizeof memory);
  return (long)(memory.WorkingSetSize / 1024);
}
#else
static int entries_of(const char* directory) {
  DIR* entries = opendir(directory);
  const struct dirent* entry;
  int count = 0;
  if (!entries) return -1;
  while ((entry = readdir(entries)) != NULL) count += entry->d_name[0] != '.';
  closedir(entries);
  return count;
}
int thread_count(void) {
  return entries_of("/proc/self/task");
}
int handle_count(void) {
  return entries_of("/proc/self/fd") - 1; /* but for the one that counts */
}
long resident_kilobytes(void) {
  FILE* file = fopen("/proc/self/statm", "r");
  long pages = -1;
  if (file && fscanf(file, "%*s %ld", &pages) != 1) pages = -1;
  if (file) fclose(file);
  return pages * (sysconf(_SC_PAGESIZE) / 1024);
}
#endif

int load_library(const char* file, Library* library) {
  const char* lacking = NULL;
  Function function;
  library->handle = open_library(file);
  if (!library->handle) return 0;
#define KVL_EXPORT(name)                              \
  function = find_function(library->handle, #name);   \
  memcpy(&library->name, &function, sizeof function); \
  if (!function) lacking = #name;
#include "exports.inc"
#undef KVL_EXPORT
  if (!lacking) return 1;
  fprintf(stderr, "%s lacks %s\n", file, lacking);
  close_library(library->handle);
  return 0;
}

void unload_library(Library* library) {
  close_library(library->handle);
  memset(library, 0, sizeof *library);
}
