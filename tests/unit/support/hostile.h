// Hostile input for parsers: texts made of torn pieces of real ones, outputs that are not text, and
// checks of how a parser reports them. Also values that must not get into a command line.
//
//   std::mt19937 random(seed);
//   fragments(random, pieces, 40)                 // forty of them, in any order
//   EXPECT_TRUE(counts_before_logging([] { parse_tm_lag(ERROR, "0/0/CPU0", "0"); }));
#pragma once

#include <chrono>
#include <functional>
#include <random>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "support/fake_router.h"

namespace tessel {

inline std::string fragments(std::mt19937& random, std::span<const std::string_view> pieces,
                             std::size_t count) {
  std::uniform_int_distribution<std::size_t> any(0, pieces.size() - 1);
  std::string text;
  for (std::size_t number = 0; number < count; ++number) text += pieces[any(random)];
  return text;
}

// Values that, used unchecked in a command line, make the shell or ssh create the file `marker`, or
// change the meaning of the line.
inline std::vector<std::string> values_that_plant(std::string_view marker) {
  const std::string touch = "touch " + std::string(marker);
  const std::string into(marker);
  return {"$(" + touch + ")",
          "`" + touch + "`",
          "1;" + touch + ";",
          "1 ; " + touch,
          "1>" + into,
          "1>>" + into,
          ">" + into + ";",
          "1&" + touch + "&",
          "1|" + touch + "|",
          "1||" + touch + "||",
          "1\n" + touch + "\n",
          "1\r" + touch,
          std::string("1\0", 2),
          std::string("1\0;", 3) + touch,
          "-oProxyCommand=" + touch,
          "-oProxyCommand='" + touch + "'",
          "-oProxyCommand=./planted",
          "'$(" + touch + ")'",
          "\"$(" + touch + ")\"",
          "1\";" + touch + ";\"",
          "';" + touch + ";'",
          "-",
          "-1",
          "'",
          "\"",
          "1\\",
          "$HOME",
          "~",
          "*",
          "1 2",
          "1\t2",
          "1\n",
          " 1",
          "../1",
          "1\x80"};
}

// The same for the last four characters of a global LIF.
inline std::vector<std::string> glifs_that_plant() {
  return {"0x1$(x)",
          "0x1`x`",
          "0x1;x;",
          "0x1>/a",
          "0x1|x ",
          "0x1&x ",
          "0x1\nx\n",
          "0x1\"x\"",
          "0x1'x'",
          "0x1\\",
          "0x1-x",
          "../x",
          "((((",
          "a b",
          " set",
          "a.b",
          std::string("0x1a\0b", 6)};
}

struct bad_output {
  const char* why;
  value output;
};

// Outputs in which no parser finds anything.
inline const std::vector<bad_output>& meaningless_outputs() {
  static const std::vector<bad_output> outputs = [] {
    std::string bytes;
    for (int round = 0; round < 100; ++round) {
      for (int byte = 0; byte < 256; ++byte) bytes += static_cast<char>(byte);
      bytes += '\n';
    }
    std::mt19937 random(1);
    std::string noise;
    while (noise.size() < 8U << 20) {
      for (int at = 0; at < 99; ++at) noise += static_cast<char>(' ' + random() % 95);
      noise += '\n';
    }
    std::string words;
    while (words.size() < 1U << 20) words += std::string(8000, 'a') + "\n";
    return std::vector<bad_output>{
        {"binary bytes", bytes}, {"megabytes of noise", noise}, {"long words", words}};
  }();
  return outputs;
}

// Endless runs of one kind of character.
inline const std::vector<bad_output>& endless_outputs() {
  static const std::vector<bad_output> outputs = {
      {"an endless word", std::string(8U << 20, 'x')},
      {"an endless number", std::string(1U << 20, '7')},
      {"endless blanks", std::string(1U << 20, ' ')},
      {"endless empty lines", std::string(1U << 20, '\n')}};
  return outputs;
}

// The messages for the channel "exception" of a run whose logs were never opened.
inline std::vector<std::string> kept_messages() {
  std::vector<std::string> found;
  for (const waiting_entry& each : st().waiting_entries) {
    constexpr std::size_t stamp = sizeof("2026-11-21 07:38:53,123: ") - 1;
    EXPECT_EQ(each.channel, "exception");
    found.push_back(each.entry.substr(stamp, each.entry.find('\n') - stamp));
  }
  return found;
}

// Expects one message for each thing counted: a parser logs whatever it counts, and counts whatever
// it logs.
inline void expect_every_message_counted() {
  EXPECT_EQ(static_cast<std::int64_t>(st().waiting_entries.size()),
            std::int64_t{st().exception} + std::int64_t{st().info});
}

// True if `failing` adds to `exception` while the log is locked, within `patience`.
inline bool counts_while_log_is_held(const std::function<void()>& failing,
                                     std::chrono::milliseconds patience) {
  run_state& run = st();
  const std::int64_t before = run.exception;
  std::unique_lock held(run.log_mutex);
  std::jthread failer(failing);
  const auto give_up = std::chrono::steady_clock::now() + patience;
  while (run.exception == before && std::chrono::steady_clock::now() < give_up) {
    std::this_thread::yield();
  }
  const bool counted = run.exception != before;
  held.unlock();
  failer.join();
  EXPECT_EQ(run.exception, before + 1);
  return counted;
}

// Show which step a handler takes first. The long limit of the first is never used up if the
// handler behaves; the second always waits for its whole limit.
inline bool counts_before_logging(const std::function<void()>& failing) {
  return counts_while_log_is_held(failing, std::chrono::seconds(60));
}
inline bool logs_before_counting(const std::function<void()>& failing) {
  return !counts_while_log_is_held(failing, std::chrono::milliseconds(200));
}

}  // namespace tessel
