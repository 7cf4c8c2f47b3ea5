/*
 * The interface of the public header as a library, for its debug information: abidw and abidiff
 * read the types from it, and find nothing but the interface. It is never loaded.
 */
#include <stddef.h>
#include <tessel/tessel.h>

void* m = NULL;

void tessel_init(void) {}

int32_t tessel_run(int32_t node_id) {
  return node_id;
}

void tessel_finalize(void) {}

int32_t run_tessel(uint32_t my_node_id) {
  return (int32_t)my_node_id;
}
