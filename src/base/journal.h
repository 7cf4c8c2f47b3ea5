// The journal of a run, for a host that asks for one: a line of JSON when a command starts and one
// when it ends, so that somebody can watch a run, or see later what a command's exit status was,
// how long it ran and how much it printed. docs/JOURNAL.md describes the lines.
//
// The host asks with the number of an open descriptor in the environment variable TESSEL_JOURNAL.
// It is the only environment variable of the audit's own. Without it none of this does anything.
// What the audit prints, logs and runs is the same with it and without it, unless the host asks
// for a time limit, too.
//
// Whoever reads the journal may be slow or gone, and that is never the audit's trouble. So a line
// is written as a whole at once or is lost, and nothing here throws or allocates after `open`. A
// pipe is opened again, by its descriptor: the mode in which a write does not wait belongs to what
// was opened, and another process may share what the host has opened. A `poll` before each write
// would not do: somebody else may fill the pipe in between. A write to a file may take as long as
// the disk: it holds no lock, and the lines of other threads wait in memory meanwhile.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

namespace tessel {

class journal_line;

// What TESSEL_JOURNAL asks for: "9", or "9 timeout=30".
struct asked_journal {
  int descriptor = -1;              // -1 if nothing is asked for
  std::chrono::seconds timeout{0};  // for each command; 0 if it may take as long as it likes
};

// Asks for nothing if the variable is not set, names no open descriptor, or is not of this form.
// Removes the variable, so that no command inherits it, and makes the descriptor close-on-exec. A
// standard stream is refused: its lines belong to the audit. Call it before the audit has threads,
// and while no other thread of the host uses the environment.
asked_journal take_asked_journal() noexcept;

// One per run.
class run_journal {
 public:
  run_journal();
  ~run_journal();
  run_journal(const run_journal&) = delete;
  run_journal& operator=(const run_journal&) = delete;

  // Writes to what `descriptor` refers to from now on, by a descriptor of its own, so that the host
  // may close the given one. There is no journal if that is no file, pipe, socket or character
  // device, if it is not open for writing, if a FIFO has no reader, or if memory or descriptors are
  // short. Before the run begins, main thread.
  void open(int descriptor) noexcept;
  bool is_open() const noexcept { return room_ != nullptr; }

  // The first line. Main thread.
  void begin(std::uint32_t node_id) noexcept;
  // The last line: what comes later is dropped. If another thread is writing, its disk may hang:
  // waits for it one second at most. Main thread.
  void finish() noexcept;
  // Ends the journal without another line; may wait as long. Main thread.
  void close() noexcept;

 private:
  friend class journaled_command;
  struct room;
  std::unique_ptr<room> room_;  // set before other threads start
};

// What the journal says of one command. Used only by the thread that runs the command. The texts
// must live as long.
class journaled_command {
 public:
  // The node whose data is asked for, as `nodeinfo` names it, and the number of the chip; empty if
  // the command asks no single one.
  journaled_command(const run_journal& journal, std::string_view node,
                    std::string_view npu) noexcept;

  // The shell runs. Writes the line of the start.
  void start(pid_t shell, std::string_view line) noexcept;
  // The shell has ended, with this status of waitpid(2), if it is known.
  void note_status(std::optional<int> wait_status) noexcept;
  // The audit has ended the shell, because its time was over.
  void note_timeout() noexcept { is_timed_out_ = true; }
  // One of these writes the line of the end: after `bytes` of output, or because of a failure,
  // which may have come before the shell. `line` is what to show as the command if it did.
  void end(std::size_t bytes) noexcept;
  void fail(std::string_view line, std::string_view why) noexcept;

  // As given, also without a journal.
  std::string_view node() const noexcept { return node_; }
  std::string_view npu() const noexcept { return npu_; }

 private:
  using clock = std::chrono::steady_clock;
  void add_subject(journal_line& line) const;
  void add_end(journal_line& line) const;

  run_journal::room* room_;
  std::string_view node_;
  std::string_view npu_;
  std::string_view line_;
  std::uint64_t id_ = 0;
  pid_t shell_ = 0;
  clock::time_point began_{};
  std::optional<clock::duration> duration_;
  std::optional<int> wait_status_;
  bool is_timed_out_ = false;
};

}  // namespace tessel
