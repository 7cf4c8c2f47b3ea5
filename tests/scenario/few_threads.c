/* Preloaded into an audit, lets it start only so many threads: THREADS_TO_BE_HAD. The others are
   refused as the system refuses them. When the process ends, its counts stand in the file that
   THREADS_REPORT names. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <pthread.h>
#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>

typedef int create_function(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);

static atomic_long wanted;

static long to_be_had(void) {
  const char* number = getenv("THREADS_TO_BE_HAD");
  return number ? atol(number) : 0;
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
                   void* argument) {
  if (atomic_fetch_add(&wanted, 1) >= to_be_had()) return EAGAIN;
  return ((create_function*)dlsym(RTLD_NEXT, "pthread_create"))(thread, attributes, start,
                                                                argument);
}

/* The tools that the audit runs are preloaded too; they want no threads. */
__attribute__((destructor)) static void report(void) {
  const char* path = getenv("THREADS_REPORT");
  if (wanted == 0 || path == NULL) return;
  FILE* file = fopen(path, "w");
  if (file == NULL) return;
  const long had = wanted < to_be_had() ? wanted : to_be_had();
  fprintf(file, "%ld started, %ld refused\n", had, wanted - had);
  fclose(file);
}
