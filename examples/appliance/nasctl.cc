// SPDX-License-Identifier: MIT
// Asks a running nasd.
#include <service/ControlSocket.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string>
#include <system_error>

namespace {

constexpr util::utime_t kPatience = 10000;  // milliseconds

constexpr char kUsage[] =
    "usage: nasctl [--control SOCKET] REQUEST\n"
    "\n"
    "  status                       how the machine is\n"
    "  warnings                     what is wrong: number, since when, text\n"
    "  acknowledge NUMBER           note that a warning has been seen\n"
    "  reload                       read the configuration again\n"
    "  log-level [CATEGORY [on|off]]\n"
    "                               what is logged; switches a category\n"
    "  stop                         end the daemon\n"
    "\n"
    "The daemon answers at SOCKET, the one named by NASD_CONTROL, or /run/nasd/control.\n"
    "Exit status: 0, 1 if the daemon refuses, 2 for a wrong command line, 3 if nobody answers.\n";

const char* default_socket() {
  const char* const named = getenv("NASD_CONTROL");
  return named != nullptr ? named : "/run/nasd/control";
}

}  // namespace

int main(int argc, char** argv) {
  std::string socket = default_socket();
  int at = 1;
  if (argc > 2 && strcmp(argv[1], "--control") == 0) {
    socket = argv[2];
    at = 3;
  }
  if (at < argc && strcmp(argv[at], "--help") == 0) return fputs(kUsage, stdout) < 0 ? 1 : 0;
  if (at >= argc || argv[at][0] == '-') {
    fputs(kUsage, stderr);
    return 2;
  }
  std::string request = argv[at];
  while (++at < argc) request.append(" ").append(argv[at]);
  try {
    fputs(service::ask(socket, request, kPatience).c_str(), stdout);
    return fflush(stdout) == 0 ? 0 : 1;
  } catch (const std::system_error& unreachable) {
    fprintf(stderr, "nasctl: %s\n", unreachable.what());
    return 3;
  } catch (const std::exception& refusal) {
    fprintf(stderr, "nasctl: %s\n", refusal.what());
    return 1;
  }
}
