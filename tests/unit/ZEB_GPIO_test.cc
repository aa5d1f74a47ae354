// SPDX-License-Identifier: MIT
#include "util/ZEB_GPIO.h"

#include "tests/support/faults.h"
#include "tests/support/files.h"

#include <errno.h>
#include <stdio.h>
#include <unistd.h>

#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

using support::Captured;
using support::Fault;
using support::Recorder;
using support::Redirect;
using support::TempDir;
using util::ZEB_GPIO;

namespace {

// A register dump that answers every request with the same text.
class Dump {
 public:
  explicit Dump(const std::string& answer) : redirect_("/proc/resource_dump", dir_.file("dump")) {
    recorder_.before = [this, answer](const std::string& call) {
      if (call == "fopen /proc/resource_dump r") {
        request_ = dir_.read("dump");
        dir_.write("dump", answer);
      }
    };
  }

  const std::string& request() const { return request_; }
  const std::vector<std::string>& calls() const { return recorder_.calls(); }

 private:
  TempDir dir_;
  Redirect redirect_;
  Recorder recorder_{
      {"fopen", "fprintf", "fscanf", "fclose"}
  };
  std::string request_;
};

ZEB_GPIO sampled(const std::string& answer) {
  const Dump dump(answer);
  ZEB_GPIO board;
  board.refresh();
  return board;
}

constexpr ZEB_GPIO::Pin kPins[] = {ZEB_GPIO::DriveCount,        ZEB_GPIO::SoftPowerOn,
                                   ZEB_GPIO::SoftReset,         ZEB_GPIO::HardwareRevision1,
                                   ZEB_GPIO::HardwareRevision2, ZEB_GPIO::TemperatureMiddle,
                                   ZEB_GPIO::TemperatureHigh};

}  // namespace

TEST(ZebGpio, IsItsSampleAndNothingElse) {
  EXPECT_EQ(sizeof(unsigned int), sizeof(ZEB_GPIO));
  EXPECT_FALSE(std::is_polymorphic<ZEB_GPIO>::value);
}

TEST(ZebGpio, EnumeratorsHaveTheirValues) {
  EXPECT_EQ(0, ZEB_GPIO::DriveCount);
  EXPECT_EQ(1, ZEB_GPIO::SoftPowerOn);
  EXPECT_EQ(2, ZEB_GPIO::SoftReset);
  EXPECT_EQ(3, ZEB_GPIO::HardwareRevision1);
  EXPECT_EQ(4, ZEB_GPIO::HardwareRevision2);
  EXPECT_EQ(5, ZEB_GPIO::TemperatureMiddle);
  EXPECT_EQ(6, ZEB_GPIO::TemperatureHigh);
  EXPECT_EQ(0, ZEB_GPIO::Revision2);
  EXPECT_EQ(1, ZEB_GPIO::Revision3);
  EXPECT_EQ(0, ZEB_GPIO::Unknown);
  EXPECT_EQ(1, ZEB_GPIO::Low);
  EXPECT_EQ(2, ZEB_GPIO::Middle);
  EXPECT_EQ(3, ZEB_GPIO::High);
  EXPECT_EQ(4U, sizeof(ZEB_GPIO::Pin));
  EXPECT_EQ(4U, sizeof(ZEB_GPIO::HardwareRevision));
  EXPECT_EQ(4U, sizeof(ZEB_GPIO::Temperature));
}

TEST(ZebGpio, IsZeroBeforeTheFirstRefresh) {
  const ZEB_GPIO board;
  EXPECT_EQ(0U, board.getValue());
}

TEST(ZebGpio, AsksForTheStatusRegister) {
  const Dump dump("0");
  ZEB_GPIO board;
  board.refresh();
  EXPECT_EQ("register  r 00010110", dump.request());
}

TEST(ZebGpio, ClosesTheRequestBeforeItReadsTheAnswer) {
  const Dump dump("1");
  ZEB_GPIO board;
  board.refresh();
  EXPECT_EQ((std::vector<std::string>{"fopen /proc/resource_dump w", "fprintf", "fclose",
                                      "fopen /proc/resource_dump r", "fscanf", "fclose"}),
            dump.calls());
}

TEST(ZebGpio, ReadsOneHexadecimalNumber) {
  const std::pair<const char*, unsigned int> rows[] = {
      {"03c01810",        0x03c01810},
      {"0x03C01810\n",    0x03c01810},
      {"  \n1f",          0x1f      },
      {"ffffffff",        0xffffffff},
      {"12 34",           0x12      },
      {"12 is the value", 0x12      },
      {"",                0         },
      {"  \n",            0         },
      {"none",            0         },
  };
  for (const auto& [answer, value] : rows) {
    SCOPED_TRACE(answer);
    EXPECT_EQ(value, sampled(answer).getValue());
  }
}

TEST(ZebGpio, ASampleOfAllPinBitsMakesEveryPinTrue) {
  const ZEB_GPIO board = sampled("03c01810");
  for (const auto pin : kPins) EXPECT_TRUE(board.getPin(pin)) << pin;
}

TEST(ZebGpio, BitsThatAreNoPinsMakeEveryPinFalse) {
  for (const char* const answer : {"0000000f", "fc3fe7ef"}) {
    const ZEB_GPIO board = sampled(answer);
    for (const auto pin : kPins) EXPECT_FALSE(board.getPin(pin)) << answer << " " << pin;
  }
}

TEST(ZebGpio, EachPinIsItsOwnBit) {
  const char* const answers[] = {"10", "800", "1000", "400000", "800000", "1000000", "2000000"};
  for (const auto set : kPins) {
    const ZEB_GPIO board = sampled(answers[set]);
    for (const auto pin : kPins) EXPECT_EQ(pin == set, board.getPin(pin)) << set << " " << pin;
  }
}

TEST(ZebGpio, APinThatDoesNotExistIsFalse) {
  const ZEB_GPIO board = sampled("ffffffff");
  for (const int pin : {-1, 7, 32, 2147483647, -2147483647 - 1}) {
    EXPECT_FALSE(board.getPin(static_cast<ZEB_GPIO::Pin>(pin))) << pin;
  }
}

TEST(ZebGpio, CountsTwoDrivesOnAHighLine) {
  EXPECT_EQ(1, sampled("ffffffef").getDriveCount());
  EXPECT_EQ(2, sampled("00000010").getDriveCount());
}

TEST(ZebGpio, IsRevision2OnlyWithBothStrapsLow) {
  EXPECT_EQ(ZEB_GPIO::Revision2, sampled("ff3fffff").getHardwareRevision());
  EXPECT_EQ(ZEB_GPIO::Revision3, sampled("00400000").getHardwareRevision());
  EXPECT_EQ(ZEB_GPIO::Revision3, sampled("00800000").getHardwareRevision());
  EXPECT_EQ(ZEB_GPIO::Revision3, sampled("00c00000").getHardwareRevision());
}

TEST(ZebGpio, ReadsTheTemperatureFromBothAlarmLines) {
  EXPECT_EQ(ZEB_GPIO::Low, sampled("fcffffff").getTemperature());
  EXPECT_EQ(ZEB_GPIO::Middle, sampled("01000000").getTemperature());
  EXPECT_EQ(ZEB_GPIO::High, sampled("03000000").getTemperature());
  EXPECT_EQ(ZEB_GPIO::Unknown, sampled("02000000").getTemperature());
}

TEST(ZebGpio, WithoutTheDumpFileEveryPinIsFalse) {
  const TempDir dir;
  const Redirect redirect("/proc/resource_dump", dir.file("no/such/folder"));
  ZEB_GPIO board = sampled("ffffffff");
  board.refresh();
  EXPECT_EQ(0U, board.getValue());
  for (const auto pin : kPins) EXPECT_FALSE(board.getPin(pin)) << pin;
}

TEST(ZebGpio, DoesNotReadWhenTheRequestCannotBeOpened) {
  const Dump dump("ffffffff");
  const Fault fault("fopen", EACCES);
  ZEB_GPIO board;
  board.refresh();
  EXPECT_EQ((std::vector<std::string>{"fopen /proc/resource_dump w"}), dump.calls());
}

TEST(ZebGpio, AnAnswerThatCannotBeOpenedIsZero) {
  ZEB_GPIO board = sampled("ffffffff");
  const Dump dump("ffffffff");
  const Fault fault("fopen", EACCES, 2);
  board.refresh();
  EXPECT_EQ(0U, board.getValue());
  EXPECT_TRUE(fault.fired());
}

TEST(ZebGpio, AnAnswerThatCannotBeReadIsZero) {
  ZEB_GPIO board = sampled("ffffffff");
  const Dump dump("ffffffff");
  const Fault fault("fscanf", EIO);
  board.refresh();
  EXPECT_EQ(0U, board.getValue());
  EXPECT_EQ("fclose", dump.calls().back());
}

TEST(ZebGpio, ReadsTheAnswerEvenIfTheRequestCouldNotBeWritten) {
  for (const char* const call : {"fprintf", "fclose"}) {
    const Dump dump("1234");
    const Fault fault(call, EIO);
    ZEB_GPIO board;
    board.refresh();
    EXPECT_EQ(0x1234U, board.getValue()) << call;
    EXPECT_TRUE(fault.fired());
  }
}

TEST(ZebGpio, ANewSampleReplacesTheOld) {
  ZEB_GPIO board = sampled("10");
  const Dump dump("");
  board.refresh();
  EXPECT_EQ(0U, board.getValue());
}

TEST(ZebGpio, FailsInSilence) {
  Captured out(stdout);
  Captured err(stderr);
  for (const char* const call : {"fopen", "fprintf", "fscanf", "fclose"}) {
    const Dump dump("1");
    const Fault fault(call, EIO, Fault::kEvery);
    ZEB_GPIO board;
    board.refresh();
  }
  EXPECT_EQ("", out.text());
  EXPECT_EQ("", err.text());
}

TEST(ZebGpio, LeavesNoFileOpen) {
  const int before = support::open_descriptors();
  for (const char* const call : {"fopen", "fprintf", "fscanf", "fclose"}) {
    for (const int nth : {1, 2}) {
      const Dump dump("1");
      const Fault fault(call, EIO, nth);
      ZEB_GPIO board;
      board.refresh();
    }
  }
  EXPECT_EQ(before, support::open_descriptors());
}
