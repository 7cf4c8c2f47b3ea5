#include "lab/tool/latency.h"
#include "lab/base/error.h"

#include <gtest/gtest.h>

#include "lab/model/router.h"
#include "support.h"

namespace {

using namespace lab;
using namespace std::chrono_literals;

TEST(latencies, are_given_by_class) {
  const auto all = parse_latencies("ssh=150ms,chip=0.3s,cfg_render=2s,all=5ms");
  EXPECT_EQ(latency_of(all, "asic_shell_show", ""), 300ms);
  EXPECT_EQ(latency_of(all, "cfg_render", ""), 2s);
  EXPECT_EQ(latency_of(all, "iface_show", ""), 5ms);
  EXPECT_EQ(latency_of(all, "ssh", "fwd_object_show"), 155ms);
  EXPECT_EQ(latency_of(all, "ssh", "asic_shell_show"), 450ms);
}

TEST(latencies, without_a_class_are_zero) {
  EXPECT_EQ(latency_of({}, "iface_show", ""), 0us);
  EXPECT_EQ(latency_of(parse_latencies("chip=1s"), "ssh", "fwd_object_show"), 0us);
  EXPECT_EQ(latency_of(parse_latencies("all=1s"), "ssh", "fwd_object_show"), 2s);
  EXPECT_EQ(latency_of(parse_latencies("all=1s,fwd_object_show=0ms"), "ssh", "fwd_object_show"),
            1s);
}

TEST(latencies, that_are_wrong_are_named) {
  struct row {
    const char* text;
    const char* message;
  };
  const row rows[] = {
      {"", "latency \"\": not CLASS=TIME such as ssh=150ms"},
      {"ssh", "latency \"ssh\": not CLASS=TIME such as ssh=150ms"},
      {"ssh=1ms,", "latency \"\": not CLASS=TIME such as ssh=150ms"},
      {"rsh=1ms", "latency \"rsh=1ms\": \"rsh\" is neither a tool nor one of ssh, chip and all"},
      {"ssh=150", "latency \"ssh=150\": a time needs its unit, as in 150ms or 0.15s"},
      {"ssh=", "latency \"ssh=\": a time needs its unit, as in 150ms or 0.15s"},
      {"ssh=ms", "latency \"ssh=ms\": not a time such as 150ms or 0.15s"},
      {"ssh=-1ms", "latency \"ssh=-1ms\": not a time such as 150ms or 0.15s"},
      {"ssh=1e3ms", "latency \"ssh=1e3ms\": not a time such as 150ms or 0.15s"},
      {"ssh=nans", "latency \"ssh=nans\": not a time such as 150ms or 0.15s"},
      {"ssh=infs", "latency \"ssh=infs\": not a time such as 150ms or 0.15s"},
      {"ssh=601s", "latency \"ssh=601s\": more than 600s"},
      {"chip=1s,asic_shell_show=1s", "latency \"asic_shell_show=1s\": named twice"},
  };
  for (const row& r : rows) {
    try {
      parse_latencies(r.text);
      ADD_FAILURE() << r.text << " was taken";
    } catch (const lab_error& refused) {
      EXPECT_STREQ(refused.what(), r.message);
    }
  }
}

}  // namespace
