// A tar archive compressed with zstd, written piece by piece. `tar --zstd -xf` reads it.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

namespace packing {

// The compression has failed; what the library says.
class packing_error : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Used by one thread. Equal entries give equal bytes, whenever they are packed.
class tar_writer {
 public:
  // Takes the bytes of the archive. What it throws, the functions below throw.
  using sink = std::function<void(std::string_view)>;

  // `level` is zstd's. Throws `std::bad_alloc`.
  tar_writer(sink write, int level);
  ~tar_writer();
  tar_writer(const tar_writer&) = delete;
  tar_writer& operator=(const tar_writer&) = delete;

  // A file, readable for its owner alone: its head, then exactly `size` bytes by `put`, then
  // `end_entry`. Throw `packing_error`.
  void begin_entry(const std::string& name, std::uint64_t size);
  void put(std::string_view bytes);
  void end_entry();
  // The end of the archive; without it the archive is not valid. Throws `packing_error`.
  void finish();

 private:
  struct state;
  std::unique_ptr<state> state_;
};

}  // namespace packing
