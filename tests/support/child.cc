// SPDX-License-Identifier: MIT
#include "tests/support/child.h"

#include <sched.h>
#include <stdlib.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <iostream>

#include <gtest/gtest.h>

namespace support {
namespace {

[[noreturn]] void run_and_exit(const std::function<void()>& body) {
  body();
  const testing::TestResult& result =
      *testing::UnitTest::GetInstance()->current_test_info()->result();
  for (int i = 0; i < result.total_part_count(); ++i) {
    const testing::TestPartResult& part = result.GetTestPartResult(i);
    std::cerr << part.file_name() << ":" << part.line_number() << ": " << part.message() << "\n";
  }
  exit(result.Failed() ? 1 : 0);
}

// What is mounted from then on is seen by this process alone. Not in a folder that is the root.
bool enter_namespace() {
  return unshare(geteuid() == 0 ? CLONE_NEWNS : CLONE_NEWNS | CLONE_NEWUSER) == 0 &&
         mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr) == 0;
}

}  // namespace

void in_child(const std::function<void()>& body) {
  EXPECT_EXIT(run_and_exit(body), testing::ExitedWithCode(0), "");
}

bool namespaces_work() {
  const pid_t child = fork();
  if (child == 0) _exit(enter_namespace() ? 0 : 1);
  int status = -1;
  return waitpid(child, &status, 0) == child && status == 0;
}

void replace_dev(const std::string& dev) {
  EXPECT_TRUE(enter_namespace());
  EXPECT_EQ(0, mount(dev.c_str(), "/dev", "none", MS_BIND, nullptr));
}

void mount_memory(const std::string& folder, const std::string& options) {
  EXPECT_TRUE(enter_namespace());
  EXPECT_EQ(0, mount("none", folder.c_str(), "tmpfs", 0, options.c_str()));
}

}  // namespace support
