// SPDX-License-Identifier: MIT
// The library under test is built with whatever key its settings name. Digests written out here
// were made by md5sum; they are of messages under keys that the tests set themselves.
#include "util/Authenticator.h"

#include "settings.h"
#include "util/MD5Authenticator.h"

#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <type_traits>

#include <gtest/gtest.h>

using util::Authenticator;
using util::byte_string;
using util::MD5Authenticator;

namespace {

byte_string bytes(const std::string& text) { return {text.begin(), text.end()}; }

// The MD5 scheme under a key of the test.
class Keyed : public MD5Authenticator {
 public:
  explicit Keyed(const std::string& secret) { key = bytes(secret); }
};

// Signs everything with two bytes: the length of the message and the last byte of the key.
class LengthAuthenticator : public Authenticator {
 public:
  LengthAuthenticator() : Authenticator(bytes("k\xA5"), "length") {}

  using Authenticator::sign;
  void sign(const byte_string& data, byte_string& sig) override {
    sig += static_cast<unsigned char>(data.size());
    sig += key.back();
  }
  bool verify(const byte_string& data, const byte_string& sig) override {
    return sig.size() == 2 && sig[0] == data.size();
  }
};

class ReversedMd5 : public Keyed {
 public:
  using Keyed::Keyed;
  using Keyed::sign;
  void sign(const byte_string& data, byte_string& sig) override {
    byte_string digest;
    Keyed::sign(data, digest);
    std::reverse(digest.begin(), digest.end());
    sig += digest;
  }
};

byte_string signature(Authenticator& authenticator, const byte_string& data) {
  byte_string sig;
  authenticator.sign(data, sig);
  return sig;
}

// The place of a virtual function in the dispatch table, as the common C++ ABI writes it into a
// member pointer: the offset in bytes, with the lowest bit set on most processors.
template <class Member>
size_t dispatch_slot(Member member) {
  uintptr_t word;
  memcpy(&word, &member, sizeof word);
  return (word & ~uintptr_t{1}) / sizeof(void*);
}

}  // namespace

// ---- Authenticator ----

TEST(Authenticator, HoldsKeyAndSchemeName) {
  LengthAuthenticator authenticator;
  EXPECT_EQ("length", authenticator.id());
  EXPECT_EQ(bytes("\x03\xA5"), signature(authenticator, bytes("abc")));
}

TEST(Authenticator, WritesASignatureInHexadecimalDigits) {
  LengthAuthenticator authenticator;
  EXPECT_EQ("0aa5", authenticator.sign(bytes("0123456789")));
  Authenticator& base = authenticator;
  EXPECT_EQ("00a5", base.sign(byte_string()));
}

TEST(Authenticator, IsCopiedMemberByMember) {
  const Keyed one("key");
  Keyed other(one);
  EXPECT_EQ(one.id(), other.id());
  EXPECT_EQ(Keyed("key").sign(bytes("data")), other.sign(bytes("data")));
}

TEST(Authenticator, HasNothingVirtualButItsTwoOperations) {
  EXPECT_TRUE(std::is_abstract<Authenticator>::value);
  EXPECT_FALSE(std::has_virtual_destructor<Authenticator>::value);
  EXPECT_FALSE(std::has_virtual_destructor<MD5Authenticator>::value);
  EXPECT_EQ(sizeof(Authenticator), sizeof(MD5Authenticator));
}

TEST(Authenticator, HasAPublicDestructor) {
  EXPECT_TRUE(std::is_destructible<Authenticator>::value);
}

TEST(Authenticator, DispatchesSignBeforeVerify) {
  using Sign = void (Authenticator::*)(const byte_string&, byte_string&);
  EXPECT_EQ(0U, dispatch_slot<Sign>(&Authenticator::sign));
  EXPECT_EQ(1U, dispatch_slot(&Authenticator::verify));
}

// ---- MD5Authenticator ----

TEST(MD5Authenticator, TakesKeyAndSchemeNameFromTheSettings) {
  MD5Authenticator authenticator;
  EXPECT_EQ(util::kMd5Id, authenticator.id());
  EXPECT_EQ(Keyed(util::kMd5Key).sign(bytes("message")), authenticator.sign(bytes("message")));
}

TEST(MD5Authenticator, SignsTheMessageFollowedByTheKey) {
  Keyed authenticator("key");
  EXPECT_EQ("6c891d418ec90edc8a86fdf0cbe9e727", authenticator.sign(bytes("data")));
}

TEST(MD5Authenticator, SignsAnEmptyMessageWithTheKeyAlone) {
  Keyed authenticator("abc");
  EXPECT_EQ("900150983cd24fb0d6963f7d28e17f72", authenticator.sign(byte_string()));
}

TEST(MD5Authenticator, SignsWithAnEmptyKey) {
  Keyed authenticator("");
  EXPECT_EQ("900150983cd24fb0d6963f7d28e17f72", authenticator.sign(bytes("abc")));
  EXPECT_EQ("d41d8cd98f00b204e9800998ecf8427e", authenticator.sign(byte_string()));
}

TEST(MD5Authenticator, SignsWithTheDevelopmentKey) {
  Keyed authenticator("development-key");
  EXPECT_EQ("4664e5b602959eb92dd91e31f3e168d0", authenticator.sign(byte_string()));
  EXPECT_EQ("c28bec0afebcf9181faababa3f2cceef", authenticator.sign(bytes("message")));
}

TEST(MD5Authenticator, SignsALongMessage) {
  Keyed authenticator("development-key");
  EXPECT_EQ("37db2bbf89d863e4520fdf098b09fa8e", authenticator.sign(byte_string(1048576, 'x')));
}

TEST(MD5Authenticator, TakesAnyBytes) {
  Keyed authenticator(std::string("k\0y", 3));
  EXPECT_EQ("9aeaf4e1d23fee5caf129ce4358f868b", authenticator.sign({0x00, 0xFF, 0x80}));
}

TEST(MD5Authenticator, TellsMessageFromKey) {
  EXPECT_EQ("6c891d418ec90edc8a86fdf0cbe9e727", Keyed("key").sign(bytes("data")));
  EXPECT_EQ("3f13977a2262dae86874aee1610c7e6d", Keyed("data").sign(bytes("key")));
}

TEST(MD5Authenticator, AppendsSixteenRawBytes) {
  Keyed authenticator("abc");
  const byte_string digest = {0x90, 0x01, 0x50, 0x98, 0x3C, 0xD2, 0x4F, 0xB0,
                              0xD6, 0x96, 0x3F, 0x7D, 0x28, 0xE1, 0x7F, 0x72};
  byte_string sig = bytes("sixteen old ones");
  authenticator.sign(byte_string(), sig);
  EXPECT_EQ(bytes("sixteen old ones") + digest, sig);
}

TEST(MD5Authenticator, SignsAMessageIntoItself) {
  Keyed authenticator("key");
  byte_string message = bytes("data");
  authenticator.sign(message, message);
  EXPECT_EQ(bytes("data") + signature(authenticator, bytes("data")), message);
}

TEST(MD5Authenticator, VerifiesTheExactSignatureOnly) {
  Keyed authenticator("key");
  const byte_string data = bytes("data");
  const byte_string sig = signature(authenticator, data);
  EXPECT_TRUE(authenticator.verify(data, sig));
  EXPECT_FALSE(authenticator.verify(data, sig + sig[0]));
  EXPECT_FALSE(authenticator.verify(data, sig.substr(0, 15)));
  EXPECT_FALSE(authenticator.verify(data, byte_string()));
  EXPECT_FALSE(authenticator.verify(bytes("date"), sig));
  for (size_t i = 0; i < sig.size(); ++i) {
    byte_string other = sig;
    other[i] ^= 1;
    EXPECT_FALSE(authenticator.verify(data, other)) << i;
  }
}

TEST(MD5Authenticator, VerifiesByTheSignOfADerivedClass) {
  Keyed plain("key");
  ReversedMd5 reversed("key");
  const byte_string data = bytes("data");
  EXPECT_TRUE(reversed.verify(data, signature(reversed, data)));
  EXPECT_FALSE(reversed.verify(data, signature(plain, data)));
  EXPECT_EQ("27e7e9cbf0fd868adc0ec98e411d896c", reversed.sign(data));
}
