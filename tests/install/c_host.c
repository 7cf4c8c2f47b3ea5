/*
 * A host in C. It loads the library, runs one audit and relies on what the header promises: a
 * completed run ends the process with status 0 and with standard output flushed.
 *
 *     c_host --library FILE
 */
#include <dlfcn.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <tessel/tessel.h>

typedef void (*plain_function)(void);
typedef int32_t (*run_function)(int32_t);

static void* library;

/* POSIX allows an object pointer to hold a function; ISO C has no cast for it. */
static plain_function plain(const char* name) {
  plain_function function = NULL;
  void* symbol = dlsym(library, name);
  memcpy(&function, &symbol, sizeof function);
  return function;
}

static run_function run(const char* name) {
  run_function function = NULL;
  void* symbol = dlsym(library, name);
  memcpy(&function, &symbol, sizeof function);
  return function;
}

int main(int argc, char** argv) {
  const char* file = "libtessel.so";
  for (int i = 1; i + 1 < argc; i++) {
    if (strcmp(argv[i], "--library") == 0) file = argv[i + 1];
  }
  library = dlopen(file, RTLD_NOW);
  if (library == NULL) {
    fprintf(stderr, "c_host: %s\n", dlerror());
    return 69;
  }
  const plain_function init = plain("tessel_init");
  const run_function audit = run("tessel_run");
  const plain_function finalize = plain("tessel_finalize");
  if (init == NULL || audit == NULL || finalize == NULL) {
    fprintf(stderr, "c_host: %s lacks an entry point\n", file);
    return 69;
  }
  /* Stays in the buffer until it is flushed, because standard output is a file here. */
  printf("[text that the host has not flushed]");
  init();
  const int32_t result = audit(4096);
  finalize();
  fprintf(stderr, "c_host: tessel_run came back with %d\n", (int)result);
  return 3;
}
