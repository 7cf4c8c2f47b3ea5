/*
 * A library with the audit's entry points that only prints how it was called and returns RESULT. In
 * a journal that it is offered it leaves one line.
 * Built without tessel_run if LACKS_RUN is set. If WORKS is set, it works for a while, or until
 * the file $WORK_UNTIL is there (60 s at most), and completes: its journal has two commands, of
 * which one is slow, and it leaves a title open meanwhile. The first line of the journal has the
 * limit of commands as the version. If LEAVES is set too, it starts a tool that lives on for 600 s,
 * with all descriptors that are not closed on exec.
 */
#define _DEFAULT_SOURCE
#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <tessel/tessel.h>
#include <unistd.h>

static int journal_descriptor = -1;
static char journal_limit[32]; /* what follows the number */

void tessel_init(void) {
  const char* journal = getenv("TESSEL_JOURNAL");
#ifdef WORKS
  if (journal != NULL) journal_descriptor = dup(atoi(journal));
  if (journal != NULL && strchr(journal, ' ') != NULL)
    snprintf(journal_limit, sizeof journal_limit, "%s", strchr(journal, ' ') + 1);
  unsetenv("TESSEL_JOURNAL");
  return;
#endif
  puts("init");
  if (journal != NULL && dprintf(atoi(journal), "journal of %d\n", atoi(journal) > 2) < 0) {
    perror("journal");
  }
}

#ifdef WORKS
static void say(const char* line) {
  if (journal_descriptor >= 0 && dprintf(journal_descriptor, "%s\n", line) < 0) perror("journal");
}

static void work(void) {
  printf("Dumping Data....");
  fflush(stdout);
#ifdef LEAVES
  if (system("sleep 600 >/dev/null 2>&1 & echo $! >$LEFT_TOOL") != 0) perror("a tool");
#endif
  if (journal_descriptor >= 0)
    dprintf(journal_descriptor,
            "{\"n\":1,\"event\":\"run\",\"format\":1,\"version\":\"%s\",\"time\":\"x\"}\n",
            journal_limit);
  say("{\"n\":2,\"event\":\"start\",\"id\":1,\"at\":0.1,\"pid\":2,\"node\":null,\"command\":"
      "\"rm\"}");
  say("{\"n\":3,\"event\":\"end\",\"id\":1,\"at\":0.2,\"pid\":2,\"node\":null,\"command\":\"rm\","
      "\"seconds\":0.1,\"status\":0,\"bytes\":0}");
  say("{\"n\":4,\"event\":\"start\",\"id\":2,\"at\":0.3,\"pid\":3,\"node\":\"0/3/"
      "CPU0\",\"npu\":\"2\","
      "\"command\":\"/opt/nos/bin/asic_shell_show -u 2\"}");
  const char* until = getenv("WORK_UNTIL");
  if (until == NULL) usleep(700000);
  for (int i = 0; i < 6000 && until != NULL && access(until, F_OK) != 0; ++i) usleep(10000);
  say("{\"n\":5,\"event\":\"end\",\"id\":2,\"at\":1.0,\"pid\":3,\"node\":\"0/3/"
      "CPU0\",\"npu\":\"2\","
      "\"command\":\"/opt/nos/bin/asic_shell_show -u "
      "2\",\"seconds\":12.5,\"status\":0,\"bytes\":7}");
  say("{\"n\":6,\"event\":\"finished\",\"at\":1.1}");
  puts(" Done");
  exit(0);
}
#endif

#ifndef LACKS_RUN
int32_t tessel_run(int32_t node_id) {
#ifdef WORKS
  work();
#endif
  printf("run %" PRIu32 "\n", (uint32_t)node_id);
  return RESULT;
}
#endif

void tessel_finalize(void) {
  puts("finalize");
}
