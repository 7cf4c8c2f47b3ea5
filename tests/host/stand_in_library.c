/*
 * A library with the audit's entry points that only prints how it was called and returns RESULT.
 * Built without tessel_run if LACKS_RUN is set.
 */
#include <inttypes.h>
#include <stdio.h>
#include <tessel/tessel.h>

void tessel_init(void) {
  puts("init");
}

#ifndef LACKS_RUN
int32_t tessel_run(int32_t node_id) {
  printf("run %" PRIu32 "\n", (uint32_t)node_id);
  return RESULT;
}
#endif

void tessel_finalize(void) {
  puts("finalize");
}
