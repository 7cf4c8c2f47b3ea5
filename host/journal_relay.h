// Hands the lines of the journal on to somebody else, who may be slow or gone.
#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace tessel_host {

// Used by one thread, which ignores SIGPIPE. Never waits but in `finish`: what the reader does not
// take yet is kept, up to a limit; a line beyond it is lost.
class journal_relay {
 public:
  // Takes over the descriptor. It is a socket, or its writes do not wait.
  journal_relay(int descriptor, bool is_socket);
  ~journal_relay();
  journal_relay(const journal_relay&) = delete;
  journal_relay& operator=(const journal_relay&) = delete;

  // Keeps a line, which comes without its end.
  void add(std::string_view line);
  // Writes what the reader takes now, to a pipe only whole lines.
  void flush();
  // Writes the rest, as long as the reader takes some of it within `pause`, and for a second at
  // most.
  void finish(std::chrono::milliseconds pause);

 private:
  int descriptor_;
  bool is_socket_;
  bool is_gone_ = false;
  std::string waiting_;   // begins with a line, or with the rest of one
  std::size_t done_ = 0;  // bytes of `waiting_` that are written
};

// Writes to what the descriptor refers to, by a descriptor of its own, as the library would: null
// if that is no pipe, socket, file or character device, is not open for writing, or is a FIFO
// without a reader.
[[nodiscard]] std::unique_ptr<journal_relay> relay_to(int descriptor);

}  // namespace tessel_host
