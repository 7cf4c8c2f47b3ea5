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
 * What tessel_run returns, if it returns at all:
 *
 * - TESSEL_STOPPED_EARLY: the run ended before it collected anything and printed no result table.
 * - TESSEL_ABORTED: a failure ended the run and its traceback is on standard error; or tessel_init
 *   was not called, or an audit has ended and its host's atexit handlers run, which one line on
 *   standard error says.
 */
#define TESSEL_STOPPED_EARLY 0
#define TESSEL_ABORTED (-2)

/*
 * Sets the run state to its defaults and points `m` to it. Ends the process with a failed assertion
 * if memory is short.
 *
 * Reads one environment variable, the only one of its own: if TESSEL_JOURNAL is the number of an
 * open descriptor, other than the three standard streams, the audit writes a journal of its
 * commands there, a line of JSON each (docs/JOURNAL.md). This call removes the variable and makes
 * the descriptor close-on-exec; the library uses a duplicate, so the host may close it afterwards.
 * No other thread of the host may use the environment during the call. A pipe, socket or terminal
 * never delays the audit, whoever reads it; a file is written at the speed of its disk, as the logs
 * are. The audit prints, logs and runs the same with a journal and without.
 *
 * "9 timeout=30" also asks to end each command that takes longer than 30 seconds: each then runs in
 * a session of its own, and has no terminal.
 */
void tessel_init(void);

/*
 * Runs the audit. `node_id` is the platform's id of the route processor that the host runs on, 4096
 * or 4352 on most routers.
 *
 * A run that reaches its own end flushes standard output and ends the process with status 0 from
 * inside this call. That includes runs with findings, runs that print "Not Done", and runs that
 * cannot open one of the five log channels. Otherwise the call returns one of the values above. If
 * the debug log or the stale-entry log cannot be opened, it returns TESSEL_STOPPED_EARLY.
 *
 * Reads the processor clock before and after the run; nothing uses the readings yet.
 *
 * The process ends through exit(3): the host's atexit handlers and the destructors of its static
 * objects run. These may call the functions of this header, but no second audit starts. Threads of
 * the audit may still be running then, and also after a return. They use nothing of the host except
 * its standard streams.
 */
int32_t tessel_run(int32_t node_id);

/* Releases `m`. The state itself stays, because threads of the audit may still run. */
void tessel_finalize(void);

/*
 * The run driver alone. Returns what tessel_run returns, with one difference: a run that reaches
 * its own end returns TESSEL_ABORTED, and what ended it stays pending for tessel_run to act on.
 */
int32_t run_tessel(uint32_t my_node_id);

/*
 * The run state between tessel_init and tessel_finalize, otherwise null. Hosts have no use for it.
 */
extern void* m;

#ifdef __cplusplus
}
#endif

#endif
