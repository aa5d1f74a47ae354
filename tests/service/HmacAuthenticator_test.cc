// SPDX-License-Identifier: MIT
#include "service/HmacAuthenticator.h"

#include "service/bytes.h"

#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

using service::HmacAuthenticator;
using service::to_bytes;

// The test cases of RFC 4231 that differ in what they try.
TEST(HmacAuthenticator, SignsAsTheStandardSays) {
  EXPECT_EQ("5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843",
            HmacAuthenticator(to_bytes("Jefe")).sign(to_bytes("what do ya want for nothing?")));
  EXPECT_EQ("b0344c61d8db38535ca8afceaf0bf12b881dc200c9833da726e9376c2e32cff7",
            HmacAuthenticator(util::byte_string(20, 0x0B)).sign(to_bytes("Hi There")));
  EXPECT_EQ("60e431591ee0b67f0d8a26aacbf5b77f8e0bc6213728c5140546040f0ee37f54",
            HmacAuthenticator(util::byte_string(131, 0xAA))  // longer than a block
                .sign(to_bytes("Test Using Larger Than Block-Size Key - Hash Key First")));
}

TEST(HmacAuthenticator, AppendsTheSignature) {
  util::byte_string sig(1, 7);
  HmacAuthenticator(to_bytes("key")).sign(to_bytes("data"), sig);
  EXPECT_EQ(33U, sig.size());
  EXPECT_EQ(7, sig[0]);
}

TEST(HmacAuthenticator, VerifiesExactlyItsOwnSignature) {
  HmacAuthenticator one(to_bytes("key"));
  util::byte_string sig;
  one.sign(to_bytes("data"), sig);
  EXPECT_TRUE(one.verify(to_bytes("data"), sig));
  EXPECT_FALSE(one.verify(to_bytes("Data"), sig));
  EXPECT_FALSE(HmacAuthenticator(to_bytes("Key")).verify(to_bytes("data"), sig));
  EXPECT_FALSE(one.verify(to_bytes("data"), sig + util::byte_string(1, 0)));
  EXPECT_FALSE(one.verify(to_bytes("data"), sig.substr(0, 31)));
  EXPECT_FALSE(one.verify(to_bytes("data"), {}));
  sig[31] ^= 1;
  EXPECT_FALSE(one.verify(to_bytes("data"), sig));
}

TEST(HmacAuthenticator, IsNamedForItsScheme) {
  EXPECT_EQ("HMAC-SHA-256", HmacAuthenticator(to_bytes("key")).id());
  EXPECT_EQ("mine", HmacAuthenticator(to_bytes("key"), "mine").id());
}

TEST(HmacAuthenticator, RefusesAnEmptyKey) {
  EXPECT_THROW(HmacAuthenticator(util::byte_string{}), std::invalid_argument);
}
