// The crew in a state that a test needs. Any test that starts workers may use them.
#pragma once

#include <latch>
#include <memory>

#include "base/worker.h"

namespace tessel {

// How many jobs compute at once, for one test.
class crew_width {
 public:
  explicit crew_width(unsigned jobs) : before_(width_of_crew()) { set_crew_width(jobs); }
  ~crew_width() { set_crew_width(before_); }
  crew_width(const crew_width&) = delete;
  crew_width& operator=(const crew_width&) = delete;

 private:
  unsigned before_;
};

// One job that holds the only core until `end`, or until the object goes.
class busy_core {
 public:
  busy_core() {
    job_ = start_worker([this] {
      here_.count_down();
      gate_.wait();
    });
    here_.wait();
  }
  ~busy_core() { end(); }
  busy_core(const busy_core&) = delete;
  busy_core& operator=(const busy_core&) = delete;

  void end() {
    if (!job_) return;
    gate_.count_down();
    job_->join();
    job_ = nullptr;
  }

 private:
  const crew_width one_{1};
  std::latch here_{1};
  std::latch gate_{1};
  std::shared_ptr<worker> job_;
};

}  // namespace tessel
