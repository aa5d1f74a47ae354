// SPDX-License-Identifier: MIT
#include "util/NetworkInterface.h"

#include "tests/support/faults.h"
#include "tests/support/files.h"
#include "tests/support/network.h"
#include "util/system_exception.h"

#include <errno.h>
#include <fcntl.h>
#include <sched.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using support::FakeInterfaces;
using support::Fault;
using support::open_descriptors;
using support::Recorder;
using util::byte_string;
using util::NetworkInterface;
using util::system_exception;

namespace {

const std::string kNoMac(14, '\0');

// A line an interface: name, hardware address, IP addresses.
std::string listing() {
  std::string text;
  for (const NetworkInterface& interface : NetworkInterface::get_interfaces()) {
    text += interface.get_name() + " ";
    for (const unsigned char byte : interface.get_macAddress()) {
      text += "0123456789abcdef"[byte / 16];
      text += "0123456789abcdef"[byte % 16];
    }
    for (const byte_string& address : interface.get_addresses()) {
      text += " " + NetworkInterface::addr_to_str(address);
    }
    text += "\n";
  }
  return text;
}

// The number that get_interfaces() throws, or 0.
int thrown_number() {
  try {
    NetworkInterface::get_interfaces();
    return 0;
  } catch (const system_exception& e) {
    return e.error_number();
  }
}

bool write_text(const char* path, const std::string& text) {
  const int file = open(path, O_WRONLY);
  if (file < 0) return false;
  const ssize_t written = write(file, text.data(), text.size());
  close(file);
  return written == static_cast<ssize_t>(text.size());
}

// Moves this process into a network of its own; without privileges as root of a user namespace.
bool enter_own_network() {
  if (unshare(CLONE_NEWNET) == 0) return true;
  const std::string map = "0 " + std::to_string(geteuid()) + " 1";
  return unshare(CLONE_NEWUSER | CLONE_NEWNET) == 0 && write_text("/proc/self/uid_map", map);
}

// What `body` returns in a child process with a network of its own that `script` has set up. There
// `add <name> <mac>` adds an Ethernet interface. "unavailable" where this system cannot do that.
std::string in_own_network(const std::string& script, const std::function<std::string()>& body) {
  const support::TempDir dir;
  const std::string file = dir.file("result");
  const std::string add =
      "add() { ip link add \"$1\" address \"$2\" type dummy 2>/dev/null ||"
      "        ip link add \"$1\" address \"$2\" type bridge; }\n";
  const pid_t child = fork();
  if (child == 0) {
    std::string result = "unavailable";
    if (enter_own_network()) {
      result = system(("set -e\n" + add + script).c_str()) == 0 ? body() : "the script failed";
    }
    support::write_file(file, result);
    _exit(0);
  }
  int status = -1;
  waitpid(child, &status, 0);
  return status == 0 ? support::read_file(file) : "crashed";
}

#define SKIP_IF_UNAVAILABLE(result) \
  if ((result) == "unavailable") GTEST_SKIP() << "no network namespaces here"

}  // namespace

// ---- real interfaces ----

TEST(NetworkInterface, ListsSeveralAddressesOfOneInterfaceInTheKernelsOrder) {
  const std::string result = in_own_network(
      "add eth0 02:00:00:00:00:0a\n"
      "ip addr add 192.168.1.10/24 dev eth0\n"
      "ip addr add 10.0.0.7/8 dev eth0\n"
      "ip -6 addr add fd00::21a:2bff:fe3c:4d5e/64 dev eth0 nodad\n",
      listing);
  SKIP_IF_UNAVAILABLE(result);
  EXPECT_EQ("eth0 02000000000a 192.168.1.10 10.0.0.7 fd00:0:0:0:21a:2bff:fe3c:4d5e\n", result);
}

TEST(NetworkInterface, ListsAnInterfaceThatIsDown) {
  const std::string result = in_own_network(
      "add eth0 02:00:00:00:00:0a\n"
      "ip link set eth0 down\n"
      "ip addr add 192.168.1.10/24 dev eth0\n",
      listing);
  SKIP_IF_UNAVAILABLE(result);
  EXPECT_EQ("eth0 02000000000a 192.168.1.10\n", result);
}

TEST(NetworkInterface, LeavesOutInterfacesWithoutIpAddress) {
  const std::string result = in_own_network(
      "add eth0 02:00:00:00:00:0a\n"
      "add eth1 02:00:00:00:00:0b\n"
      "sysctl -qw net.ipv6.conf.eth1.disable_ipv6=1 2>/dev/null ||"
      "  echo 1 >/proc/sys/net/ipv6/conf/eth1/disable_ipv6\n"
      "ip link set eth1 up\n"
      "ip addr add 192.168.1.10/24 dev eth0\n",
      listing);
  SKIP_IF_UNAVAILABLE(result);
  EXPECT_EQ("eth0 02000000000a 192.168.1.10\n", result);
}

TEST(NetworkInterface, SortsByNameInPlainStringOrder) {
  const std::string result = in_own_network(
      "add eth2 02:00:00:00:00:02\n"
      "add eth10 02:00:00:00:00:10\n"
      "add eth1 02:00:00:00:00:01\n"
      "ip addr add 10.0.0.2/24 dev eth2\n"
      "ip addr add 10.0.1.2/24 dev eth10\n"
      "ip addr add 10.0.2.2/24 dev eth1\n",
      listing);
  SKIP_IF_UNAVAILABLE(result);
  EXPECT_EQ(
      "eth1 020000000001 10.0.2.2\n"
      "eth10 020000000010 10.0.1.2\n"
      "eth2 020000000002 10.0.0.2\n",
      result);
}

TEST(NetworkInterface, GivesTheLoopbackInterfaceSixZeroBytes) {
  const std::string result = in_own_network(
      "ip addr add 127.0.0.1/8 dev lo\n"
      "ip -6 addr add ::1/128 dev lo nodad\n",
      listing);
  SKIP_IF_UNAVAILABLE(result);
  EXPECT_EQ("lo 000000000000 127.0.0.1 0:0:0:0:0:0:0:1\n", result);
}

TEST(NetworkInterface, ListsAnAliasUnderItsOwnName) {
  const std::string result = in_own_network(
      "add eth0 02:00:00:00:00:0a\n"
      "ip addr add 10.0.0.1/24 dev eth0\n"
      "ip addr add 10.0.0.2/24 dev eth0 label eth0:1\n",
      listing);
  SKIP_IF_UNAVAILABLE(result);
  EXPECT_EQ("eth0 02000000000a 10.0.0.1\neth0:1 02000000000a 10.0.0.2\n", result);
}

TEST(NetworkInterface, TakesTheLongestNameOfTheKernel) {
  const std::string result = in_own_network(
      "add fifteen-letters 02:00:00:00:00:0f\n"
      "ip addr add 10.0.0.1/24 dev fifteen-letters\n",
      listing);
  SKIP_IF_UNAVAILABLE(result);
  EXPECT_EQ("fifteen-letters 02000000000f 10.0.0.1\n", result);
}

TEST(NetworkInterface, ListsNothingWithoutAnyAddress) {
  const std::string result =
      in_own_network("add eth0 02:00:00:00:00:0a\n", [] { return "<" + listing() + ">"; });
  SKIP_IF_UNAVAILABLE(result);
  EXPECT_EQ("<>", result);
}

TEST(NetworkInterface, MayBeAskedFromSeveralThreadsAtOnce) {
  const std::string result = in_own_network(
      "add eth0 02:00:00:00:00:0a\n"
      "ip addr add 10.0.0.1/24 dev eth0\n",
      [] {
        std::vector<std::string> results(4);
        std::vector<std::thread> threads;
        for (std::string& one : results) {
          threads.emplace_back([&one] {
            for (int i = 0; i < 50; ++i) one = listing();
          });
        }
        for (std::thread& thread : threads) thread.join();
        return results[0] + results[1] + results[2] + results[3];
      });
  SKIP_IF_UNAVAILABLE(result);
  const std::string one = "eth0 02000000000a 10.0.0.1\n";
  EXPECT_EQ(one + one + one + one, result);
}

TEST(NetworkInterface, OpensNothingForGood) {
  const int before = open_descriptors();
  NetworkInterface::get_interfaces();
  EXPECT_EQ(before, open_descriptors());
}

// ---- any interfaces ----

TEST(NetworkInterface, GathersTheEntriesOfOneName) {
  FakeInterfaces fake{
      {"eth2", "packet"      },
      {"eth2", "192.168.1.10"},
      {"lo",   "127.0.0.1"   },
      {"eth2", "fe80::1"     },
      {"lo",   "::1"         },
      {"eth2", "10.0.0.7"    },
  };
  fake.hardware = {
      {"eth2", "\x02\xFE\x80\xFF\x01\x0A"},
      {"lo",   kNoMac                    }
  };
  EXPECT_EQ(
      "eth2 02fe80ff010a 192.168.1.10 fe80:0:0:0:0:0:0:1 10.0.0.7\n"
      "lo 000000000000 127.0.0.1 0:0:0:0:0:0:0:1\n",
      listing());
}

TEST(NetworkInterface, KeepsDuplicateAddresses) {
  FakeInterfaces fake{
      {"eth0", "10.0.0.1"},
      {"eth0", "10.0.0.1"},
  };
  fake.hardware = {
      {"eth0", kNoMac}
  };
  EXPECT_EQ("eth0 000000000000 10.0.0.1 10.0.0.1\n", listing());
}

TEST(NetworkInterface, SkipsEntriesWithoutAddressAndOfOtherFamilies) {
  const FakeInterfaces fake{
      {"ppp0", ""      },
      {"eth0", "packet"},
      {"odd0", "unix"  },
  };
  EXPECT_EQ("", listing());
  EXPECT_EQ(0, fake.open_lists());
}

TEST(NetworkInterface, SortsAPrefixFirst) {
  FakeInterfaces fake{
      {"eth10", "10.0.0.1"},
      {"eth1",  "10.0.0.2"},
      {"Eth",   "10.0.0.3"},
      {"eth2",  "10.0.0.4"},
  };
  fake.hardware = {
      {"eth10", kNoMac},
      {"eth1",  kNoMac},
      {"Eth",   kNoMac},
      {"eth2",  kNoMac}
  };
  EXPECT_EQ(
      "Eth 000000000000 10.0.0.3\n"
      "eth1 000000000000 10.0.0.2\n"
      "eth10 000000000000 10.0.0.1\n"
      "eth2 000000000000 10.0.0.4\n",
      listing());
}

TEST(NetworkInterface, TakesTheFirstSixBytesOfALongHardwareAddress) {
  FakeInterfaces fake{
      {"ib0", "10.0.0.1"}
  };
  fake.hardware = {
      {"ib0", "\x01\x02\x03\x04\x05\x06\x07\x08"}
  };
  const auto interfaces = NetworkInterface::get_interfaces();
  ASSERT_EQ(1U, interfaces.size());
  EXPECT_EQ((byte_string{1, 2, 3, 4, 5, 6}), interfaces[0].get_macAddress());
}

TEST(NetworkInterface, KeepsAddressesInNetworkByteOrder) {
  FakeInterfaces fake{
      {"eth0", "192.168.1.10"            },
      {"eth0", "fe80::21a:2bff:fe3c:4d5e"},
  };
  fake.hardware = {
      {"eth0", kNoMac}
  };
  const auto interfaces = NetworkInterface::get_interfaces();
  ASSERT_EQ(1U, interfaces.size());
  const std::vector<byte_string> expected = {
      {192,   168,  1,    10  },
      { 0xFE, 0x80, 0, 0, 0, 0, 0, 0, 0x02, 0x1A, 0x2B, 0xFF, 0xFE, 0x3C, 0x4D, 0x5E}
  };
  EXPECT_EQ(expected, interfaces[0].get_addresses());
}

TEST(NetworkInterface, CallsTheSystemInOrder) {
  FakeInterfaces fake{
      {"eth1", "10.0.0.1"},
      {"eth0", "10.0.0.2"},
  };
  fake.hardware = {
      {"eth0", kNoMac},
      {"eth1", kNoMac}
  };
  const Recorder recorder({"getifaddrs", "freeifaddrs", "socket", "ioctl", "close"});
  NetworkInterface::get_interfaces();
  EXPECT_EQ(
      (std::vector<std::string>{"getifaddrs", "freeifaddrs", "socket", "ioctl", "ioctl", "close"}),
      recorder.calls());
}

TEST(NetworkInterface, OpensAndClosesASocketForNoInterfaceToo) {
  const FakeInterfaces fake{};
  const Recorder recorder({"getifaddrs", "freeifaddrs", "socket", "ioctl", "close"});
  EXPECT_EQ("", listing());
  EXPECT_EQ((std::vector<std::string>{"getifaddrs", "freeifaddrs", "socket", "close"}),
            recorder.calls());
}

TEST(NetworkInterface, IsCopiedMemberByMember) {
  FakeInterfaces fake{
      {"eth0", "10.0.0.1"}
  };
  fake.hardware = {
      {"eth0", "\x01\x02\x03\x04\x05\x06"}
  };
  NetworkInterface copy = NetworkInterface::get_interfaces()[0];
  const NetworkInterface another(copy);
  copy = another;
  EXPECT_EQ("eth0", copy.get_name());
  EXPECT_EQ(std::vector<byte_string>({
                {10, 0, 0, 1}
  }),
            copy.get_addresses());
  EXPECT_EQ((byte_string{1, 2, 3, 4, 5, 6}), copy.get_macAddress());
}

TEST(NetworkInterface, IsMadeByTheListOnly) {
  EXPECT_FALSE((std::is_constructible<NetworkInterface, std::string, std::vector<byte_string>,
                                      byte_string>::value));
  EXPECT_FALSE(std::is_default_constructible<NetworkInterface>::value);
}

// ---- failures ----

TEST(NetworkInterface, ThrowsWhereTheListFails) {
  const int before = open_descriptors();
  const Fault fault("getifaddrs", ENOBUFS);
  const Recorder recorder({"getifaddrs", "freeifaddrs", "socket"});
  EXPECT_EQ(ENOBUFS, thrown_number());
  EXPECT_EQ(std::vector<std::string>{"getifaddrs"}, recorder.calls());
  EXPECT_EQ(before, open_descriptors());
}

TEST(NetworkInterface, FreesTheListBeforeTheSocketFails) {
  const FakeInterfaces fake{
      {"eth0", "10.0.0.1"}
  };
  const int before = open_descriptors();
  const Fault fault("socket", EMFILE);
  const Recorder recorder({"getifaddrs", "freeifaddrs", "socket", "close"});
  EXPECT_EQ(EMFILE, thrown_number());
  EXPECT_EQ((std::vector<std::string>{"getifaddrs", "freeifaddrs", "socket"}), recorder.calls());
  EXPECT_EQ(0, fake.open_lists());
  EXPECT_EQ(before, open_descriptors());
}

TEST(NetworkInterface, ThrowsWhereOneHardwareAddressFails) {
  FakeInterfaces fake{
      {"eth0", "10.0.0.1"},
      {"eth1", "10.0.0.2"},
      {"eth2", "10.0.0.3"},
  };
  fake.hardware = {
      {"eth0", kNoMac},
      {"eth1", kNoMac},
      {"eth2", kNoMac}
  };
  const int before = open_descriptors();
  const Fault fault("ioctl", EPERM, 2);
  const Recorder recorder({"ioctl", "close"});
  EXPECT_EQ(EPERM, thrown_number());
  EXPECT_EQ((std::vector<std::string>{"ioctl", "ioctl", "close"}), recorder.calls());
  EXPECT_EQ(before, open_descriptors());
}

TEST(NetworkInterface, KeepsTheNumberOfTheRequestWhenClosingFailsToo) {
  const FakeInterfaces fake{
      {"eth0", "10.0.0.1"}
  };
  const int before = open_descriptors();
  const Fault request("ioctl", ENODEV);
  const Fault closing("close", EIO);
  EXPECT_EQ(ENODEV, thrown_number());
  EXPECT_TRUE(closing.fired());
  EXPECT_EQ(before, open_descriptors());
}

TEST(NetworkInterface, ThrowsWhereAnInterfaceHasGone) {
  const FakeInterfaces fake{
      {"gone0", "10.0.0.1"}
  };
  EXPECT_THAT([&] { NetworkInterface::get_interfaces(); },
              testing::ThrowsMessage<std::exception>("No such device"));
}

TEST(NetworkInterface, RefusesANameThatDoesNotFitTheRequest) {
  FakeInterfaces fake{
      {"sixteen-letters-", "10.0.0.1"}
  };
  fake.hardware = {
      {"sixteen-letters", kNoMac}
  };
  const int before = open_descriptors();
  const Fault never("ioctl", EIO);
  EXPECT_EQ(ENAMETOOLONG, thrown_number());
  EXPECT_FALSE(never.fired());
  EXPECT_EQ(before, open_descriptors());
}

// ---- addresses as text ----

TEST(AddrToStr, WritesFourBytesAsADottedQuad) {
  EXPECT_EQ("127.0.0.1", NetworkInterface::addr_to_str({127, 0, 0, 1}));
  EXPECT_EQ("192.168.1.10", NetworkInterface::addr_to_str({192, 168, 1, 10}));
  EXPECT_EQ("255.255.255.255", NetworkInterface::addr_to_str({255, 255, 255, 255}));
  EXPECT_EQ("0.0.0.0", NetworkInterface::addr_to_str(byte_string(4, 0)));
}

TEST(AddrToStr, WritesSixteenBytesAsEightGroups) {
  EXPECT_EQ("fe80:0:0:0:21a:2bff:fe3c:4d5e",
            NetworkInterface::addr_to_str(
                {0xFE, 0x80, 0, 0, 0, 0, 0, 0, 0x02, 0x1A, 0x2B, 0xFF, 0xFE, 0x3C, 0x4D, 0x5E}));
  EXPECT_EQ("ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff",
            NetworkInterface::addr_to_str(byte_string(16, 0xFF)));
}

TEST(AddrToStr, WritesGroupsWithoutLeadingZeros) {
  EXPECT_EQ("a:a00:10:100:0:1:0:0",
            NetworkInterface::addr_to_str(
                {0x00, 0x0A, 0x0A, 0x00, 0x00, 0x10, 0x01, 0x00, 0, 0, 0, 1, 0, 0, 0, 0}));
}

TEST(AddrToStr, ShortensNothing) {
  EXPECT_EQ("0:0:0:0:0:0:0:0", NetworkInterface::addr_to_str(byte_string(16, 0)));
  EXPECT_EQ("0:0:0:0:0:ffff:a00:1",
            NetworkInterface::addr_to_str({0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, 10, 0, 0, 1}));
}

TEST(AddrToStr, WritesAQuestionMarkForAnyOtherLength) {
  const size_t lengths[] = {0, 1, 3, 5, 6, 8, 15, 17, 32};
  for (const size_t length : lengths) {
    EXPECT_EQ("?", NetworkInterface::addr_to_str(byte_string(length, 1))) << length;
  }
}
