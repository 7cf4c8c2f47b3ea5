// One audit at a time on a machine: two would write the same logs and capture files.
#pragma once

#include <chrono>
#include <optional>
#include <stdexcept>
#include <string>

namespace tessel_host {

// One line: who has the lock, another audit or what may be none, and what to do.
class audit_running : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

// One line: the deadline has come before the lock, who has it, what to do.
class audit_waited_too_long : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Until when to wait, and what the caller was asked for.
struct lock_deadline {
  std::chrono::steady_clock::time_point end;
  std::chrono::seconds asked;
};

// Takes the lock, which is on the folder of the logs and leaves no file, and keeps it until this
// process and its children of the same program have ended, however they end. If another audit has
// it, waits for that one's end, after a line on standard error, or throws `audit_running`. At the
// deadline, if there is one, it throws `audit_waited_too_long`. Without the folder there is no
// lock: the audit then cannot open its logs and says so.
void take_audit_lock(bool waits, const std::optional<lock_deadline>& deadline);

struct lock_holder {
  long process = 0;  // 0 if nobody has the lock, or if it cannot be seen from here
  // Its name, if it is no tessel-host. Anybody who may read the folder can take the lock.
  std::string stranger;
};

// Does not touch the lock, so that no audit is refused because somebody asks.
[[nodiscard]] lock_holder find_lock_holder();

// "process 4711 (sleep) holds the lock on /var/log and may be no audit".
[[nodiscard]] std::string describe_stranger(const lock_holder& holder);

}  // namespace tessel_host
