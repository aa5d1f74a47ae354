// SPDX-License-Identifier: MIT
#include "bench/bench.h"

#include <spawn.h>
#include <sys/wait.h>

#include <filesystem>

extern char** environ;

namespace {

// Programs that end at once, beside this one.
auto start(const char* program) {
  const auto path = std::filesystem::read_symlink("/proc/self/exe").replace_filename(program);
  return [path = path.string()] {
    char* arguments[] = {const_cast<char*>(path.c_str()), nullptr};
    pid_t child = 0;
    bench::require(posix_spawn(&child, path.c_str(), nullptr, nullptr, arguments, environ) == 0,
                   path);
    int status = 0;
    bench::require(waitpid(child, &status, 0) == child && status == 0, path);
  };
}

}  // namespace

void bench::add_cases() {
  add("starting a program", "ours", [] { return start("start_ours"); });
  add("starting a program", "TinyXML, libcrypto", [] { return start("start_parts"); });
  add("starting a program", "floor", [] { return start("start_alone"); });
}
