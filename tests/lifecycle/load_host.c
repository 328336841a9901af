/*
 * Loads the library, uses it and unloads it, again and again; before and after InitKVLWrapper, which
 * it calls twice. One thread uses it and another unloads it, while the first and the threads of its
 * OpenMP team are still there. What the process holds must not grow.
 *
 *   load_host LIBRARY rounds [kB]
 */
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>

#include "mixed_calls.h"

/* What a process may hold more after the last round than after the first few, unless the caller
   allows for more memory. */
enum { more_threads = 0, more_handles = 4, more_kilobytes = 1024 };

enum { calls_a_round = 4, most_calls = 64 };

typedef enum { started, used, unloaded } Stage;

typedef struct {
  const char* file;
  int round;
  Library library;
  Frame frame;
  uint64_t expected[2][most_calls]; /* before InitKVLWrapper and after it */
  int failed;

  pthread_mutex_t lock;
  pthread_cond_t changed;
  Stage stage;
} Host;

static void reach(Host* host, Stage stage) {
  pthread_mutex_lock(&host->lock);
  host->stage = stage;
  pthread_cond_broadcast(&host->changed);
  pthread_mutex_unlock(&host->lock);
}

static void wait_for(Host* host, Stage stage) {
  pthread_mutex_lock(&host->lock);
  while (host->stage < stage) pthread_cond_wait(&host->changed, &host->lock);
  pthread_mutex_unlock(&host->lock);
}

static void run_calls(Host* host, int initialised) {
  int i;
  for (i = 0; i < calls_a_round; ++i) {
    const int index = (host->round * calls_a_round + i) % mixed_call_count;
    uint64_t* expected = &host->expected[initialised][index];
    const uint64_t result = mixed_call(&host->library, index, &host->frame);
    if (*expected == 0) *expected = result;
    if (*expected == result) continue;
    fprintf(stderr, "load_host: round %d: another result of %s\n", host->round,
            mixed_call_name(index));
    host->failed = 1;
  }
}

static void use(Host* host) {
  run_calls(host, 0);
  host->library.InitKVLWrapper();
  host->library.InitKVLWrapper();
  run_calls(host, 1);
  reach(host, used);
}

static void unload(Host* host) {
  wait_for(host, used);
  unload_library(&host->library);
  if (is_loaded(host->file)) {
    fprintf(stderr, "load_host: round %d: the library is still loaded\n", host->round);
    host->failed = 1;
  }
  reach(host, unloaded);
}

/* In even rounds the second thread uses the library, in odd ones it unloads it. */
static void* second_thread(void* argument) {
  Host* host = argument;
  if (host->round % 2 == 0) {
    use(host);
    wait_for(host, unloaded);
  } else {
    unload(host);
  }
  return NULL;
}

static int run_round(Host* host) {
  pthread_t second;
  host->stage = started;
  if (!load_library(host->file, &host->library)) return 0;
  if (pthread_create(&second, NULL, second_thread, host) != 0) return 0;
  if (host->round % 2 == 0) {
    unload(host);
  } else {
    use(host);
    wait_for(host, unloaded);
  }
  return pthread_join(second, NULL) == 0 && !host->failed;
}

typedef struct {
  int threads;
  int handles;
  long kilobytes;
} Holding;

static Holding holding(void) {
  Holding now;
  now.threads = thread_count();
  now.handles = handle_count();
  now.kilobytes = resident_kilobytes();
  return now;
}

int main(int argc, char** argv) {
  static Host host;
  Holding first = {0, 0, 0}, last;
  const int rounds = argc >= 3 ? (int)strtol(argv[2], NULL, 10) : 0;
  const long kilobytes = argc >= 4 ? strtol(argv[3], NULL, 10) : more_kilobytes;
  int warm_up;

  if (rounds < 1 || argc > 4) {
    fprintf(stderr, "usage: load_host LIBRARY rounds [kB]\n");
    return 2;
  }
  host.file = argv[1];
  pthread_mutex_init(&host.lock, NULL);
  pthread_cond_init(&host.changed, NULL);
  if (mixed_call_count > most_calls || !make_frame(&host.frame, 121, 83)) return 1;
  /* Enough for every call to have run. */
  warm_up = rounds / 2 < 20 ? rounds / 2 : 20;
  for (host.round = 0; host.round < rounds; ++host.round) {
    if (host.round == warm_up) first = holding();
    if (!run_round(&host)) return 1;
  }
  last = holding();
  free_frame(&host.frame);
  printf(
      "%d loads: %d threads after %d loads, %d after the last; %d and %d handles; "
      "%ld and %ld kB resident\n",
      rounds, first.threads, warm_up, last.threads, first.handles, last.handles, first.kilobytes,
      last.kilobytes);
  if (last.threads <= first.threads + more_threads &&
      last.handles <= first.handles + more_handles &&
      last.kilobytes <= first.kilobytes + kilobytes) {
    return 0;
  }
  fprintf(stderr, "load_host: the process holds more than %d threads, %d handles and %ld kB more\n",
          more_threads, more_handles, kilobytes);
  return 1;
}
