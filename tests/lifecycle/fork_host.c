/*
 * A process that uses the library, forks, and uses it again in the child, in the child's child and
 * in itself.
 *
 *   fork_host LIBRARY
 */
#define _DEFAULT_SOURCE /* usleep */
#include <omp.h>
#include <pthread.h>
#include <signal.h>
#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include "../jpeg/raw_coder.h"
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

static void* fork_often(void* unused) {
  int right = all_calls("forking thread"), i;
  (void)unused;
  for (i = 0; i < 20 && right; ++i) right = in_child(use_in_child);
  return right && all_calls("forking thread at last") ? &stop : NULL;
}

/* Forks from a second thread while another one runs `busy` until `stop`. */
static int fork_beside(void* (*busy)(void*)) {
  pthread_t others[2];
  void* ends[2];
  stop = 0;
  if (pthread_create(&others[0], NULL, busy, NULL) != 0 ||
      pthread_create(&others[1], NULL, fork_often, NULL) != 0) {
    return 0;
  }
  pthread_join(others[1], &ends[1]);
  stop = 1;
  pthread_join(others[0], &ends[0]);
  return ends[0] && ends[1];
}

static void* make_calls(void* unused) {
  int right = 1;
  (void)unused;
  while (!stop) right &= all_calls("busy thread");
  return right ? &stop : NULL;
}
static int beside_calls(void) {
  return fork_beside(make_calls);
}

/* Holds the lock of the one-call resize nearly all the time. */
static void* resize(void* unused) {
  const double from[4] = {0, 0, 400, 300};
  const RECT into = {0, 0, 1600, 1200};
  Frame frame;
  int right = make_frame(&frame, 1600, 1200);
  (void)unused;
  while (right && !stop) {
    right = library.KVL_ResizeDIB_CPP(&frame.header, frame.picture, from, &frame.header,
                                      frame.result, &into, 0) == KVL_S_OK;
  }
  free_frame(&frame);
  return right ? &stop : NULL;
}
static int beside_one_call_resizes(void) {
  return fork_beside(resize);
}

/* A coder that does not get on before the forks are over. */
static atomic_int coding;
static int32_t wait_in_coder(RawCoder* coder, RawCall call, int32_t row) {
  (void)coder, (void)call, (void)row;
  coding = 1;
  while (!stop) usleep(1000);
  return 0;
}
static void* write_jpeg(void* unused) {
  Frame frame;
  RawCoder coder;
  KVL_JpegEncoder encoder;
  int right = make_frame(&frame, 121, 83);
  (void)unused;
  memset(&coder, 0, sizeof coder);
  coder.memory = frame.work;
  coder.size = 4 * frame.size;
  coder.hook = wait_in_coder;
  encoder = raw_encoder(&coder);
  right = right && library.KVL_JpegWriteRawImage(&encoder, &frame.header, frame.picture,
                                                 KVL_JPEG_420, 0, 0, NULL) == KVL_JPEG_OK;
  free_frame(&frame);
  return right ? &stop : NULL;
}
static int beside_coder(void) {
  pthread_t writer;
  void* end;
  int right;
  if (!all_calls("parent")) return 0;
  stop = coding = 0;
  if (pthread_create(&writer, NULL, write_jpeg, NULL) != 0) return 0;
  while (!coding) usleep(1000);
  right = in_child(use_in_child);
  stop = 1;
  pthread_join(writer, &end);
  return right && end;
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
    {"beside a thread in all sorts of calls", beside_calls},
    {"beside one-call resizes", beside_one_call_resizes},
    {"beside a coder that waits", beside_coder},
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
