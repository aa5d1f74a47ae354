// SPDX-License-Identifier: MIT
// Lets command-line programs send requests to a running daemon. In the daemon:
//
//   service::ControlSocket control(loop, "/run/nasd/control", [&](const service::Request& request)
//   {
//     if (request.line == "status") return status();
//     throw std::invalid_argument("unknown command: " + request.line);
//   });
//
// and in the program:
//
//   std::cout << service::ask("/run/nasd/control", "status", 2000);
#pragma once

#include "service/Loop.h"
#include "util/export.h"
#include "util/types.h"

#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

namespace service {

// A line that a client sent. The system says who the client is, so that cannot be forged.
struct Request {
  std::string line;  // without its line feed
  uid_t user;
  gid_t group;
  pid_t process;
};

struct ControlOptions {
  mode_t mode = 0600;                    // who may connect: needs to write
  uid_t owner = static_cast<uid_t>(-1);  // of the socket; as the process has it
  gid_t group = static_cast<gid_t>(-1);
  size_t clients = 16;             // at once; another one is told that there are too many
  size_t line = 4096;              // bytes; a longer one is answered by an error, and the end
  size_t answer = 1 << 20;         // bytes; a longer one becomes an error
  util::utime_t patience = 30000;  // from one request to the next, sending its answer included
};

// Answers requests on a Unix-domain stream socket, on the thread of a Loop, which must outlive it.
//
// A request is one line. Its answer is what the handler returns, any number of lines, followed by a
// NUL byte, so that a client can tell a whole answer from one that was cut off; NUL bytes in it are
// left out. If the handler throws, the answer is "error: " and the exception's text, so no other
// one should begin like that. Logs to the root logger.
//
// No client can block the loop. A client's next request is read only when it has taken its answer,
// so a client that does not read delays nobody but itself and keeps at most one answer in memory.
// If there are no descriptors left for new clients, they wait; this is logged once.
class UTIL_EXPORT ControlSocket {
 public:
  // May destroy the ControlSocket; what it returns is still sent, as far as that is possible
  // without waiting.
  using Handler = std::function<std::string(const Request&)>;

  // Listens at `path`, of at most 99 bytes: the socket is made under a longer name, with the
  // process id. A socket that another process has left there is replaced. Throws AlreadyRunning
  // (see service/InstanceLock.h; here it names the socket) if a process is listening there;
  // std::system_error if the system refuses, if the path is too long (ENAMETOOLONG), or if
  // something other than a socket is there (EEXIST); RegistrationError if the loop cannot watch it.
  ControlSocket(Loop& loop, const std::string& path, Handler handler,
                const ControlOptions& options = ControlOptions());
  // Removes the socket and disconnects all clients.
  ~ControlSocket();
  ControlSocket(const ControlSocket&) = delete;
  ControlSocket& operator=(const ControlSocket&) = delete;

 private:
  class Server;

  std::shared_ptr<Server> server_;
};

// The daemon answered with an error; what() is its text.
class UTIL_EXPORT Refused : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Sends a line to the ControlSocket at `path` and returns the answer. Waits at most `limit`
// milliseconds. Must not be called on the thread that answers.
//
// Throws Refused; std::system_error if nobody listens (ENOENT, ECONNREFUSED), the caller may not
// connect (EACCES), the time is up (ETIMEDOUT) or the connection ends in the middle of the answer
// (ECONNRESET); std::invalid_argument if the line holds a line feed.
UTIL_EXPORT std::string ask(const std::string& path, const std::string& line, util::utime_t limit);

}  // namespace service
