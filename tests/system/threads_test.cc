// SPDX-License-Identifier: MIT
// The functions that may run in several threads at once do, on different inputs, and give each
// thread its own answer. The thread sanitizer sees what they share (scripts/test thread).
#include "service/Loop.h"
#include "tests/support/clock.h"
#include "tests/support/network.h"
#include "util/JSEmit.h"
#include "util/MD5Authenticator.h"
#include "util/NetworkInterface.h"
#include "util/Timer.h"
#include "util/util.h"

#include <signal.h>
#include <stddef.h>
#include <stdint.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

using namespace util;
using support::FakeInterfaces;
using support::FrozenClock;

namespace {

constexpr size_t kThreads = 4;
constexpr size_t kRounds = 500;

byte_string bytes(const std::string& text) { return {text.begin(), text.end()}; }

// Runs `body` in each thread with its number, all at once.
void at_once(const std::function<void(size_t)>& body) {
  std::atomic<size_t> waiting{kThreads};
  std::vector<std::thread> threads;
  for (size_t number = 0; number < kThreads; ++number) {
    threads.emplace_back([&body, &waiting, number] {
      --waiting;
      while (waiting > 0) std::this_thread::yield();
      body(number);
    });
  }
  for (std::thread& thread : threads) thread.join();
}

// Runs `check` on every row again and again; each thread begins with another row.
template <class Row, size_t size>
void on_rows_at_once(const Row (&rows)[size], const std::function<void(const Row&)>& check) {
  at_once([&](size_t number) {
    for (size_t round = 0; round < kRounds; ++round) check(rows[(number + round) % size]);
  });
}

}  // namespace

TEST(Threads, Base64) {
  struct Row {
    const char* plain;
    const char* text;
  };
  const Row rows[] = {
      {"",                       ""                                                },
      {"f",                      "Zg==\n"                                          },
      {"foobar",                 "Zm9v\nYmFy\n"                                    },
      {"a text of some length.", "YSB0\nZXh0\nIG9m\nIHNv\nbWUg\nbGVu\nZ3Ro\nLg==\n"},
  };
  on_rows_at_once<Row>(rows, [](const Row& row) {
    std::string text;
    EXPECT_EQ(0, b64_encode(bytes(row.plain), text, 4));
    EXPECT_EQ(row.text, text);
    byte_string plain;
    EXPECT_EQ(0, b64_decode(row.text, plain));
    EXPECT_EQ(bytes(row.plain), plain);
  });
}

TEST(Threads, Escaping) {
  struct Row {
    const char* plain;
    const char* escaped;
  };
  const Row rows[] = {
      {"plain",                  "plain"                           },
      {"what?",                  "what%3F"                         },
      {"a:b*c",                  "a%3Ab%2Ac"                       },
      {"a name that ends.",      "a name that ends%2E"             },
      {"<\"quoted\" | 50% off>", "%3C%22quoted%22 %7C 50%25 off%3E"},
  };
  on_rows_at_once<Row>(rows, [](const Row& row) {
    EXPECT_EQ(row.escaped, escape_string(row.plain));
    EXPECT_EQ(row.plain, unescape_string(row.escaped));
  });
}

TEST(Threads, NaturalOrder) {
  struct Row {
    const char* a;
    const char* b;
    int expected;
    int folded;
  };
  const Row rows[] = {
      {"file2",  "file10",  -1, -1},
      {"1.01",   "1.002",   1,  1 },
      {"A name", "a  NAME", -1, 0 },
      {"b",      "A",       1,  1 },
      {"same",   "same",    0,  0 },
  };
  on_rows_at_once<Row>(rows, [](const Row& row) {
    EXPECT_EQ(row.expected, strnatcmp(row.a, row.b));
    EXPECT_EQ(row.folded, strnatcasecmp(row.a, row.b));
  });
}

TEST(Threads, Dates) {
  struct Row {
    const char* text;
    const char* format;
    utime_t instant;
  };
  const Row rows[] = {
      {"2006-01-02 03:04:05", "%Y-%m-%d %H:%M:%S", 1136171045000U},
      {"1970-01-01",          "%Y-%m-%d",          0U            },
      {"28.02.2007 23:59:59", "%d.%m.%Y %H:%M:%S", 1172707199000U},
      {"29/02/2000",          "%d/%m/%Y",          951782400000U },
  };
  const support::TimeZone zone("UTC");
  on_rows_at_once<Row>(rows, [](const Row& row) {
    EXPECT_EQ(row.instant, parse_time(row.text, row.format));
    EXPECT_EQ(row.text, unparse_time(row.instant, row.format));
  });
}

TEST(Threads, PrintableStrings) {
  struct Row {
    const char* plain;
    const char* printed;
  };
  const Row rows[] = {
      {"word",         "word"                  },
      {"two words",    "\"two words\""         },
      {"",             "\"\""                  },
      {"a \"b\" c\\d", "\"a \\\"b\\\" c\\\\d\""},
  };
  on_rows_at_once<Row>(rows, [](const Row& row) { EXPECT_EQ(row.printed, print_str(row.plain)); });
}

TEST(Threads, ScriptText) {
  struct Row {
    Value value;
    const char* text;
  };
  const Row rows[] = {
      {Value(5),                                                           "5"               },
      {Value(0.25),                                                        "0.25"            },
      {Value("it's"),                                                      "'it\\'s'"        },
      {Value(value_array{Value(true), Value(1e100)}),                      "[ true, 1e+100 ]"},
      {Value(value_struct{{"key", Value(bytes("ab"))}, {"n", Value(-1)}}),
       "{ 'key' : [ 97, 98 ], 'n' : -1 }"                                                    },
  };
  const JSEmit emit;
  on_rows_at_once<Row>(rows, [&emit](const Row& row) {
    const Value own = row.value;  // They run at once on distinct values.
    EXPECT_EQ(row.text, emit.emitValue(own));
    EXPECT_EQ("function f()\n{\n  return " + std::string(row.text) + ";\n}",
              emit.emitFunction("f", own));
  });
}

TEST(Threads, SignaturesOfOneAuthenticator) {
  class Keyed : public MD5Authenticator {
   public:
    Keyed() { key = bytes("key"); }
  };
  struct Row {
    const char* data;
    const char* signature;  // by md5sum, of the data with "key" behind it
  };
  const Row rows[] = {
      {"",          "3c6e0b8a9c15224a8228b9a98ca1531d"},
      {"data",      "6c891d418ec90edc8a86fdf0cbe9e727"},
      {"more data", "5a6baaa38cbcafd6f82a3455d202f248"},
  };
  Keyed authenticator;
  on_rows_at_once<Row>(rows, [&authenticator](const Row& row) {
    EXPECT_EQ(row.signature, authenticator.Authenticator::sign(bytes(row.data)));
    byte_string signature;
    authenticator.sign(bytes(row.data), signature);
    EXPECT_TRUE(authenticator.verify(bytes(row.data), signature));
    EXPECT_FALSE(authenticator.verify(bytes("other"), signature));
  });
}

TEST(Threads, NetworkInterfaces) {
  FakeInterfaces fake{
      {"eth0", "192.168.1.10"},
      {"lo",   "127.0.0.1"   },
      {"eth0", "fe80::1"     },
  };
  fake.hardware = {
      {"eth0",         "\x02\xFE\x80\xFF\x01\x0A"},
      { "lo", std::string(6,                      '\0')}
  };
  at_once([](size_t) {
    for (size_t round = 0; round < kRounds; ++round) {
      const auto interfaces = NetworkInterface::get_interfaces();
      ASSERT_EQ(2U, interfaces.size());
      EXPECT_EQ("eth0", interfaces[0].get_name());
      EXPECT_EQ((byte_string{2, 254, 128, 255, 1, 10}), interfaces[0].get_macAddress());
      ASSERT_EQ(2U, interfaces[0].get_addresses().size());
      EXPECT_EQ("192.168.1.10", NetworkInterface::addr_to_str(interfaces[0].get_addresses()[0]));
      EXPECT_EQ("fe80:0:0:0:0:0:0:1",
                NetworkInterface::addr_to_str(interfaces[0].get_addresses()[1]));
      EXPECT_EQ("lo", interfaces[1].get_name());
    }
  });
  EXPECT_EQ(0, fake.open_lists());
}

TEST(Threads, ClockAndSleep) {
  at_once([](size_t number) {
    FrozenClock clock(static_cast<int64_t>(1000000 * number));  // of this thread
    for (size_t round = 0; round < kRounds; ++round) {
      ASSERT_EQ(1000000 * number + 2 * round, Timer::now());
      Timer::sleep(2);
    }
  });
}

// Each thread has a logger and loops of its own, one after the other, while signals keep coming.
TEST(Threads, Loops) {
  service::Loop outer;  // keeps the handler while there is no other loop
  const service::Handle handled = outer.on_signal(SIGUSR1, [] {});
  std::atomic<bool> ended{false};
  std::thread sender([&ended] {
    while (!ended) kill(getpid(), SIGUSR1);
  });
  std::vector<logger*> loggers;
  for (const char* const name : {"a", "b", "c", "d"}) loggers.push_back(logger::getLogger(name));
  at_once([&loggers](size_t number) {
    for (int round = 0; round < 20; ++round) {
      service::Loop loop(loggers.at(number));
      const auto thread = std::this_thread::get_id();
      const service::Handle signal = loop.on_signal(SIGUSR1, [&loop, thread] {
        EXPECT_EQ(thread, std::this_thread::get_id());
        loop.stop();
      });
      loop.run(5);
    }
  });
  ended = true;
  sender.join();
}
