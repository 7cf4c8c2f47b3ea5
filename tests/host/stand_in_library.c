/*
 * A library with the audit's entry points that only prints how it was called and returns RESULT. In
 * a journal that it is offered it leaves one line.
 * Built without tessel_run if LACKS_RUN is set.
 */
#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <tessel/tessel.h>

void tessel_init(void) {
  const char* journal = getenv("TESSEL_JOURNAL");
  puts("init");
  if (journal != NULL && dprintf(atoi(journal), "journal of %d\n", atoi(journal) > 2) < 0) {
    perror("journal");
  }
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
