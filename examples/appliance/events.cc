// SPDX-License-Identifier: MIT
#include "events.h"

#include "http.h"

#include <stddef.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>

namespace appliance {
namespace {

constexpr int kStreams = 4;
constexpr int kSeconds = 300;   // that a stream lasts
constexpr int kSendAgain = 3;   // seconds
constexpr unsigned kGrace = 3;  // seconds for a reader that is slow to take the last event

struct stat status_of(const std::string& file) {
  struct stat status = {};
  stat(file.c_str(), &status);
  return status;
}

// A place is a socket's name that belongs to no file: no other process can have it until this one
// ends, in whatever way.
bool take_place(const std::string& name) {
  sockaddr_un address = {AF_UNIX, {}};
  const size_t length = std::min(name.size(), sizeof address.sun_path - 1);
  name.copy(address.sun_path + 1, length);
  const int place = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + length);
  if (bind(place, reinterpret_cast<const sockaddr*>(&address), size) == 0) return true;
  close(place);
  return false;
}

void take_any_place(const std::string& file) {
  const struct stat folder = status_of(std::filesystem::absolute(file).parent_path());
  const std::string name =
      "nasd.events." + std::to_string(folder.st_dev) + "." + std::to_string(folder.st_ino) + ".";
  for (int i = 0; i < kStreams; ++i) {
    if (take_place(name + std::to_string(i))) return;
  }
  throw Refusal(503, "There are streams enough; ask now and then instead.");
}

int lasts() {
  const int told = atoi(variable("NASD_EVENTS_SECONDS").c_str());
  return told > 0 ? told : kSeconds;
}

}  // namespace

void stream_events(const std::string& file, const std::function<std::string()>& event) {
  take_any_place(file);
  alarm(static_cast<unsigned>(lasts()) + kGrace);
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(lasts());
  std::string next = event();
  send_head(200, "text/event-stream");
  try {
    while (std::chrono::steady_clock::now() < end) {
      std::cout << "data: " << next << "\n\n" << std::flush;
      const ino_t sent = status_of(file).st_ino;
      for (int i = 0; i < kSendAgain && (i == 0 || status_of(file).st_ino == sent); ++i) sleep(1);
      next = event();
    }
    std::cout << "event: end\ndata:\n\n" << std::flush;
  } catch (const std::exception& failure) {
    std::cerr << "status.cgi: " << failure.what() << "\n";
  }
}

}  // namespace appliance
