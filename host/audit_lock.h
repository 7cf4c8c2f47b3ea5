// One audit at a time on a machine: two would write the same logs and capture files.
#pragma once

#include <stdexcept>
#include <string>

namespace tessel_host {

// One line: another audit is running, which one, what to do.
class audit_running : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Takes the lock, which is on the folder of the logs and leaves no file, and keeps it until this
// process and its children of the same program have ended, however they end. If another audit has
// it, waits for that one's end, after a line on standard error, or throws `audit_running`. Without
// the folder there is no lock: the audit then cannot open its logs and says so.
void take_audit_lock(bool waits);

// The process that has the lock; 0 if nobody has, or if it cannot be seen from here. Does not touch
// the lock, so that no audit is refused because somebody asks.
[[nodiscard]] long find_lock_holder();

}  // namespace tessel_host
