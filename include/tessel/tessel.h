/*
 * tessel.h: the entry points of libtessel.so, for the host process that loads it.
 *
 *   tessel_init();
 *   int32_t result = tessel_run(4096);    // returns only in the cases below
 *   tessel_finalize();
 *
 * All three are called once, in this order, from one thread of the host. The audit writes its
 * phase lines and its result table on standard output and its findings in files
 * "/var/log/tessel_*.log"; it starts the platform's tools through /bin/sh and waits for them.
 *
 * The host needs the right to write /var/log and /tmp and to run the tools, which on a router means
 * root.
 */
#ifndef TESSEL_TESSEL_H
#define TESSEL_TESSEL_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * What tessel_run returns when it returns at all: the run ended before anything was collected, and
 * there is no result table; or a failure ended it, whose traceback stands on standard error, as
 * does one line if tessel_init has not been called.
 */
#define TESSEL_STOPPED_EARLY 0
#define TESSEL_ABORTED (-2)

/*
 * Sets the run state to its defaults and `m` to it. Ends the process with a failed assertion if
 * there is no memory for it.
 */
void tessel_init(void);

/*
 * Runs the audit. `node_id` is the platform's id of the route processor that the host runs on,
 * 4096 or 4352 on most routers. A run that ends by itself, with findings or without, also one
 * that says "Not Done" or cannot open one of its five log channels, flushes standard output and
 * ends the process with status 0 from inside this call. Returns one of the values above otherwise:
 * a debug log or a stale-entry log that cannot be opened comes back as TESSEL_STOPPED_EARLY.
 *
 * Reads the processor clock before and after the run; nothing uses the readings yet.
 *
 * It ends the process by exit(3): the host's atexit handlers and the destructors of its static
 * objects run, and threads of the audit may still be at work meanwhile, as they may after a return.
 * They use nothing of the host but its standard streams.
 */
int32_t tessel_run(int32_t node_id);

/* Releases `m`. The state itself stays, for threads of the audit that may still run. */
void tessel_finalize(void);

/*
 * The run driver by itself. Returns as tessel_run does, but a run that ends by itself comes back
 * from here with TESSEL_ABORTED: what ended it stays pending for tessel_run to act on.
 */
int32_t run_tessel(uint32_t my_node_id);

/* The run state from tessel_init to tessel_finalize, otherwise null. Of no use to a host. */
extern void* m;

#ifdef __cplusplus
}
#endif

#endif
