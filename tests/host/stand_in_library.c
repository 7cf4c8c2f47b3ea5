/* A library with the audit's entry points that does nothing but say how it was called and return
 * RESULT. Built without tessel_run where LACKS_RUN is set. */
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
