/*
 * A process that uses the library, forks, and uses it again in the child, in the child's child and
 * in itself.
 *
 *   fork_host LIBRARY
 */
#include <omp.h>
#include <pthread.h>
#include <signal.h>
#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include "mixed_calls.h"

enum { most_calls = 64, most_seconds = 60 };

static const char* library_file;
static Library library;
static uint64_t expected[most_calls];
static atomic_int stop;

static int all_calls(const char* who) {
  Frame frame;
  int i, right = 1;
  if (!make_frame(&frame, 121, 83)) return 0;
  for (i = 0; i < mixed_call_count; ++i) {
    const uint64_t result = mixed_call(&library, i, &frame);
    if (expected[i] == 0) expected[i] = result;
    if (result == expected[i]) continue;
    fprintf(stderr, "fork_host: %s: another result of %s\n", who, mixed_call_name(i));
    right = 0;
  }
  free_frame(&frame);
  return right;
}

/* Whether `body` returns 1 in a child, in time. The alarm ends one that hangs. */
static int in_child(int (*body)(void)) {
  const pid_t child = fork();
  int status = 1;
  if (child == 0) {
    alarm(most_seconds);
    _exit(body() ? 0 : 1);
  }
  if (child < 0 || waitpid(child, &status, 0) != child) return 0;
  if (WIFSIGNALED(status) && WTERMSIG(status) == SIGALRM) {
    fprintf(stderr, "fork_host: a child hangs\n");
  }
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

static int use_in_child(void) {
  return all_calls("child");
}

static int use_in_child_and_grandchild(void) {
  library.InitKVLWrapper();
  return all_calls("child") && in_child(use_in_child) && all_calls("child after its own fork");
}

/* Leaves the library loaded anew. */
static int reload_and_use(void) {
  unload_library(&library);
  return !is_loaded(library_file) && load_library(library_file, &library) &&
         (library.InitKVLWrapper(), all_calls("child with the library loaded anew"));
}

static int after_use(void) {
  return all_calls("parent") && in_child(use_in_child_and_grandchild) && in_child(reload_and_use) &&
         all_calls("parent after forks");
}

static int before_use(void) {
  return in_child(use_in_child) && after_use();
}

/* The other thread is in all sorts of calls, and so in their locks, at the time of the forks. */
static void* keep_busy(void* unused) {
  int right = 1;
  (void)unused;
  while (!stop) right &= all_calls("busy thread");
  return right ? &stop : NULL;
}

static void* fork_often(void* forks) {
  int right = all_calls("forking thread");
  long i;
  for (i = 0; i < *(const long*)forks; ++i) right &= in_child(use_in_child);
  return right && all_calls("forking thread at last") ? &stop : NULL;
}

static int from_second_thread(void) {
  pthread_t busy[2], forking;
  void* ends[3];
  long forks = 20;
  stop = 0;
  if (pthread_create(&busy[0], NULL, keep_busy, NULL) != 0 ||
      pthread_create(&busy[1], NULL, keep_busy, NULL) != 0 ||
      pthread_create(&forking, NULL, fork_often, &forks) != 0) {
    return 0;
  }
  pthread_join(forking, &ends[0]);
  stop = 1;
  pthread_join(busy[0], &ends[1]);
  pthread_join(busy[1], &ends[2]);
  return ends[0] && ends[1] && ends[2];
}

/* A region of one thread that has had a larger team before: the child leaves the region and goes
   on without that team. */
static int from_region_of_one(void) {
  int right = 0, is_child = 0;
  pid_t child = -1;
  all_calls("parent");
#pragma omp parallel num_threads(1)
  {
    child = fork();
    is_child = child == 0;
    if (is_child) {
      alarm(most_seconds);
      right = all_calls("child inside a region");
    }
  }
  if (is_child) {
    right = right && all_calls("child after the region") &&
            library.KVL_GetNumOpenMPThreads() == 1 && in_child(use_in_child);
    _exit(right ? 0 : 1);
  }
  waitpid(child, &right, 0);
  return child > 0 && right == 0 && all_calls("parent after the region");
}

static int from_region_of_three(void) {
  int right = 1;
  all_calls("parent");
#pragma omp parallel num_threads(3) reduction(&& : right)
  right = in_child(use_in_child);
  return right && all_calls("parent after the region");
}

/* The handlers of an unloaded library must be gone. */
static int nothing(void) {
  return 1;
}
static int after_unload(void) {
  all_calls("parent");
  unload_library(&library);
  return !is_loaded(library_file) && in_child(nothing) && load_library(library_file, &library) &&
         (library.InitKVLWrapper(), before_use());
}

static const struct {
  const char* name;
  int (*run)(void);
} cases[] = {
    {"before the first use", before_use},
    {"after use", after_use},
    {"from a second thread while others are in calls", from_second_thread},
    {"inside a region of one thread", from_region_of_one},
    {"inside a region of three threads", from_region_of_three},
    {"after unloading", after_unload},
};

int main(int argc, char** argv) {
  int failed = 0;
  size_t i;
  if (argc != 2) {
    fprintf(stderr, "usage: fork_host LIBRARY\n");
    return 2;
  }
  library_file = argv[1];
  if (!load_library(library_file, &library) || mixed_call_count > most_calls) return 1;
  library.InitKVLWrapper();
  /* Larger than a machine of one core has by itself. */
  omp_set_num_threads(3);
  /* Before anything has run here: a child makes the expected results of its own. */
  for (i = 0; i < sizeof cases / sizeof *cases; ++i) {
    const int right = cases[i].run();
    printf("fork %s: %s\n", cases[i].name, right ? "right" : "WRONG");
    fflush(stdout);
    failed |= !right;
  }
  unload_library(&library);
  return failed;
}
