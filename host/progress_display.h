// Where and how the host shows the progress of an audit: on standard error, never where it could
// come between the audit's own words. Whoever else wants the journal gets its lines from here.
#pragma once

#include "journal_relay.h"
#include "progress.h"

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace tessel_host {

enum class progress_way {
  none,
  redrawn,  // one line of a terminal, over and over
  lines,    // one every ten seconds
};

// `asked` is what the options say, if anything. On a terminal that also shows standard output there
// is no progress: a line would be drawn into a title that the audit has left open.
[[nodiscard]] progress_way choose_progress(std::optional<bool> asked);
// True if standard output and standard error are the same terminal.
[[nodiscard]] bool streams_share_a_terminal();

// Used by one thread. Never waits for whoever reads standard error: what it does not take is lost.
class progress_display {
 public:
  using clock = std::chrono::steady_clock;

  // Without a journal there is no progress. `relay` may be null.
  progress_display(progress_way way, std::unique_ptr<journal_tail> journal,
                   std::unique_ptr<journal_relay> relay, clock::time_point began);

  // Reads on in the journal, hands it on and shows what is due.
  void look(clock::time_point now);
  // When `look` should be called next; nothing if never.
  [[nodiscard]] std::optional<clock::duration> pause(clock::time_point now) const;
  // Makes room on the terminal for other lines.
  void erase();
  // Reads the rest of the journal and hands it on; shows a last line where lines are kept.
  void end(clock::time_point now);

  // After `end`: how many commands were ended by their time limit, and which were running.
  [[nodiscard]] std::size_t timed_out() const { return seen_.timed_out(); }
  [[nodiscard]] std::string summary() const { return seen_.present(seconds_); }

 private:
  void read();
  void hand_on(clock::time_point now);
  [[nodiscard]] double seconds_until(clock::time_point now) const;
  void draw(clock::time_point now);
  void write_line(const std::string& text);

  progress_way way_;
  std::unique_ptr<journal_tail> journal_;
  std::unique_ptr<journal_relay> relay_;
  clock::time_point began_;
  clock::time_point next_;
  clock::time_point next_relay_;
  progress seen_;
  double seconds_ = 0;  // until the end
  bool is_drawn_ = false;
};

}  // namespace tessel_host
