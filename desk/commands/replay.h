// Audits a recorded router again, to have the logs that a run on it leaves.
#pragma once

#include <string>

namespace desk {

// A folder that goes with its object, and all that is in it.
class temporary_folder {
 public:
  // Throws `no_run` if it cannot be made.
  temporary_folder();
  ~temporary_folder();
  temporary_folder(const temporary_folder&) = delete;
  temporary_folder& operator=(const temporary_folder&) = delete;
  [[nodiscard]] const std::string& path() const { return path_; }

 private:
  std::string path_;
};

// What a capture says of itself; empty where it does not.
struct recorded {
  std::string type;    // "birch"
  std::string began;   // the recorded audit, in the form of the logs but in UTC
  std::string folder;  // of its files; one that was packed is beside the logs
};

// Lets tessel-lab, which must stand beside this program or on the path, audit the capture with the
// library's own parsers and checks; the logs and the journal go to the folder. The journal that was
// recorded with the capture replaces that of the replay, because it has the times of the router.
// A packed capture is unpacked beside the logs before that.
// Throws `no_run` with the lab's own words if the capture cannot be audited.
[[nodiscard]] recorded replay(const std::string& capture, const std::string& logs);

}  // namespace desk
