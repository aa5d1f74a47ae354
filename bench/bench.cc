// SPDX-License-Identifier: MIT
#include "bench/bench.h"

#include <malloc.h>
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

// The C library's own functions behind those replaced below.
extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
void* __libc_memalign(size_t alignment, size_t size);
}

namespace {

thread_local long used = 0;

}  // namespace

extern "C" {

void* malloc(size_t size) {
  ++used;
  return __libc_malloc(size);
}

void* calloc(size_t count, size_t size) {
  ++used;
  return __libc_calloc(count, size);
}

void* realloc(void* block, size_t size) {
  ++used;
  return __libc_realloc(block, size);
}

void* aligned_alloc(size_t alignment, size_t size) {
  ++used;
  return __libc_memalign(alignment, size);
}

int posix_memalign(void** block, size_t alignment, size_t size) {
  ++used;
  *block = __libc_memalign(alignment, size);
  return *block == nullptr ? ENOMEM : 0;
}

}  // extern "C"

namespace bench {
namespace {

class Folder {
 public:
  Folder() {
    std::string pattern = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : P_tmpdir;
    pattern += "/nasutil-bench.XXXXXX";
    require(mkdtemp(pattern.data()) != nullptr, "no folder for the files");
    path = pattern;
  }
  ~Folder() { std::filesystem::remove_all(path); }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;

  std::string path;
};

// Google Benchmark knows a case as "<work>/<who>".
std::string name_of(const Case& c) { return c.work + "/" + c.who; }

void time_cases(int argc, char** argv) {
  for (const Case& c : cases()) benchmark::RegisterBenchmark(name_of(c).c_str(), c.time);
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
}

// Counts our own cases. Callgrind writes a file for each, in the order of the names written here.
void count_cases() {
  for (const Case& c : cases()) {
    if (c.who != "ours") continue;
    c.count();
    CALLGRIND_DUMP_STATS;
    std::cout << c.work << std::endl;
  }
}

}  // namespace

std::vector<Case>& cases() {
  static std::vector<Case> all;
  return all;
}

long allocations() { return used; }

void require(bool holds, const std::string& what) {
  if (holds) return;
  std::cerr << "benchmark: " << what << std::endl;
  exit(1);
}

std::string scratch_file(const std::string& name) {
  static const Folder folder;
  return folder.path + "/" + name;
}

std::string read_file(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

void write_file(const std::string& path, const std::string& text) {
  std::ofstream stream(path);
  stream << text;
  stream.close();
  require(!stream.fail(), "cannot write " + path);
}

}  // namespace bench

// Times the cases, or with --count counts the instructions of some units of ours, under callgrind.
int main(int argc, char** argv) {
  // The heap keeps what was freed: otherwise large works mostly measure how the kernel clears
  // pages.
  mallopt(M_TRIM_THRESHOLD, 1 << 30);
  mallopt(M_MMAP_THRESHOLD, 1 << 25);
  bench::add_cases();
  if (argc == 2 && strcmp(argv[1], "--count") == 0) {
    bench::count_cases();
  } else {
    bench::time_cases(argc, argv);
  }
  return 0;
}
