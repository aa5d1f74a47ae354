// SPDX-License-Identifier: MIT
#include "service/ControlSocket.h"

#include "service/InstanceLock.h"
#include "service/internal/Descriptor.h"
#include "service/internal/concat.h"
#include "util/logger.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstring>
#include <list>
#include <utility>

namespace service {
namespace {

using util::utime_t;

constexpr int kBacklog = 128;
constexpr size_t kPart = 4096;   // bytes received at a time
constexpr utime_t kPause = 100;  // milliseconds without accepting once descriptors have run out
constexpr char kEnd = '\0';      // ends an answer
constexpr char kError[] = "error: ";
constexpr size_t kErrorSize = sizeof kError - 1;

// ---- addresses ----

class Address {
 public:
  explicit Address(const std::string& path) {
    address_.sun_family = AF_UNIX;
    if (path.size() >= sizeof address_.sun_path) {
      throw_error(ENAMETOOLONG, path);
    }
    memcpy(address_.sun_path, path.data(), path.size());
  }

  const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&address_); }
  static socklen_t size() { return sizeof(sockaddr_un); }

 private:
  sockaddr_un address_ = {};
};

Descriptor stream_socket() {
  return Descriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0),
                    "cannot make a socket");
}

ucred peer(const Descriptor& socket) {
  ucred found = {};
  socklen_t size = sizeof found;
  if (getsockopt(socket.number(), SOL_SOCKET, SO_PEERCRED, &found, &size) < 0) {
    throw_errno("cannot see who is connected");
  }
  return found;
}

// ---- the socket's file ----

class File {
 public:
  explicit File(std::string path) : path_(std::move(path)) { unlink(path_.c_str()); }
  ~File() { unlink(path_.c_str()); }
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  const char* path() const { return path_.c_str(); }

 private:
  const std::string path_;
};

// Throws if somebody listens at this address, which is that of `path`.
void check_stale(const char* socket, const std::string& path) {
  struct stat found = {};
  if (lstat(socket, &found) == 0 && !S_ISSOCK(found.st_mode)) {
    errno = EEXIST;
    throw_errno(path + " is not a socket");
  }
  const Descriptor probe = stream_socket();
  if (connect(probe.number(), Address(socket).get(), Address::size()) == 0) {
    throw AlreadyRunning(path, peer(probe).pid);
  }
  if (errno == EAGAIN) throw AlreadyRunning(path, 0);  // It listens, but its queue is full.
  if (errno != ECONNREFUSED && errno != ENOENT) throw_errno("cannot connect to " + path);
}

// Another daemon that starts at the same time may put its own socket there at any moment. So the
// socket is first renamed to a name that no other process uses, checked again, and put back if it
// turns out to be live.
void remove_stale(const std::string& path, const std::string& own) {
  check_stale(path.c_str(), path);
  const File aside(own + "~");
  if (rename(path.c_str(), aside.path()) < 0) {
    if (errno == ENOENT) return;
    throw_errno("cannot replace " + path);
  }
  try {
    check_stale(aside.path(), path);
  } catch (const AlreadyRunning&) {
    if (link(aside.path(), path.c_str()) < 0) throw_errno("cannot put back " + path);
    throw;
  }
}

// A socket that listens at a path.
class Listener {
 public:
  Listener(const std::string& path, const ControlOptions& options);
  ~Listener();
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;

  int socket() const { return socket_.number(); }

 private:
  const std::string path_;
  const pid_t process_ = getpid();  // a forked child leaves the file alone
  const Descriptor socket_ = stream_socket();
  struct stat file_ = {};
};

// The socket appears at its path only once it has its mode and listens, so one that does not listen
// is stale.
Listener::Listener(const std::string& path, const ControlOptions& options) : path_(path) {
  const std::string own = concat({path, ".", decimal(getpid())});
  const Address address(own);
  const File file(own);
  if (bind(socket_.number(), address.get(), Address::size()) < 0 ||
      lchown(file.path(), options.owner, options.group) < 0 ||
      chmod(file.path(), options.mode) < 0 || listen(socket_.number(), kBacklog) < 0 ||
      lstat(file.path(), &file_) < 0) {
    throw_errno("cannot listen at " + path);
  }
  while (link(file.path(), path.c_str()) < 0) {
    if (errno != EEXIST) throw_errno("cannot listen at " + path);
    remove_stale(path, own);
  }
}

Listener::~Listener() {
  struct stat there = {};
  if (getpid() == process_ && lstat(path_.c_str(), &there) == 0 && there.st_dev == file_.st_dev &&
      there.st_ino == file_.st_ino) {
    unlink(path_.c_str());
  }
}

bool is_shortage(int error) {
  return error == EMFILE || error == ENFILE || error == ENOBUFS || error == ENOMEM;
}

// Returns false if accepting fails.
bool change(Handle& handle, uint32_t events) {
  try {
    handle.change(events);
    return true;
  } catch (const RegistrationError&) {
    return false;
  }
}

std::string error_answer(const std::string& text) {
  return concat({
      kError, text, "\n", {&kEnd, 1}
  });
}

std::string too_long(const char* what, size_t limit) {
  return error_answer(concat({what, " is longer than ", decimal(limit), " bytes"}));
}

struct Client {
  // Whether there is a whole line, or one that is already too long.
  bool has_line(size_t limit) const { return length() < in.size() || length() > limit; }
  size_t length() const { return std::min(in.find('\n'), in.size()); }
  bool receive();
  bool send();

  Descriptor socket;
  Request request;
  std::string in;
  std::string out;
  bool ended = false;  // the client sends no more
  Handle ready;
  Handle patience;
};

// False if the connection is gone.
bool Client::receive() {
  char part[kPart];
  const ssize_t size = recv(socket.number(), part, sizeof part, 0);
  if (size < 0) return errno == EAGAIN || errno == EINTR;
  in.append(part, static_cast<size_t>(size));
  ended = size == 0;
  if (ended && !in.empty()) in += '\n';  // the last line may lack its line feed
  return true;
}

// False if the connection is gone.
bool Client::send() {
  const ssize_t size = ::send(socket.number(), out.data(), out.size(), MSG_NOSIGNAL);
  if (size < 0) return errno == EAGAIN || errno == EINTR;
  out.erase(0, static_cast<size_t>(size));
  return true;
}

}  // namespace

// ---- the daemon's side ----

class UTIL_HIDDEN ControlSocket::Server : public std::enable_shared_from_this<Server> {
 public:
  Server(Loop& loop, const std::string& path, Handler handler, const ControlOptions& options)
      : loop_(loop),
        path_(path),
        handler_(std::move(handler)),
        options_(options),
        listener_(std::make_unique<Listener>(path, options)) {
    accepting_ = loop.watch(listener_->socket(), EPOLLIN, [this](uint32_t) { accept(); });
  }

  void close() {
    pause_.cancel();
    accepting_.cancel();
    listener_.reset();
    clients_.clear();
  }

 private:
  using ClientAt = std::list<Client>::iterator;

  void accept();
  void pause(int error);
  void add(Descriptor socket);
  void serve(ClientAt client);
  bool step(ClientAt client);
  void answer(ClientAt client);
  void expect_request(ClientAt client);

  Loop& loop_;
  const std::string path_;
  const Handler handler_;
  const ControlOptions options_;
  std::unique_ptr<Listener> listener_;
  std::list<Client> clients_;
  Handle accepting_;
  Handle pause_;
  bool short_of_descriptors_ = false;
};

void ControlSocket::Server::accept() {
  const int number = accept4(listener_->socket(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
  if (number < 0 && is_shortage(errno)) return pause(errno);
  if (number < 0) return;  // the client has gone already
  Descriptor socket(number);
  short_of_descriptors_ = false;
  if (clients_.size() < options_.clients) {
    try {
      add(std::move(socket));
    } catch (const std::exception& error) {
      UTIL_LOG(util::logger::rootLogger(), util::WARNING, "%s lost a client: %s", path_.c_str(),
               error.what());
    }
    return;
  }
  const std::string full = error_answer("there are too many clients");
  send(socket.number(), full.data(), full.size(), MSG_NOSIGNAL);
}

// Stops accepting for a while: the listening socket stays ready, so the loop would spin.
void ControlSocket::Server::pause(int error) {
  if (!std::exchange(short_of_descriptors_, true)) {
    UTIL_LOG(util::logger::rootLogger(), util::WARNING, "%s cannot accept clients at present: %s",
             path_.c_str(), strerror(error));
  }
  change(accepting_, 0);
  pause_ = loop_.after(kPause, [this] {
    if (!change(accepting_, EPOLLIN)) pause(errno);
  });
}

void ControlSocket::Server::add(Descriptor socket) {
  std::list<Client> added(1);
  const ClientAt client = added.begin();
  const ucred who = peer(socket);
  client->request = {"", who.uid, who.gid, who.pid};
  client->socket = std::move(socket);
  client->ready =
      loop_.watch(client->socket.number(), EPOLLIN, [this, client](uint32_t) { serve(client); });
  expect_request(client);
  clients_.splice(clients_.end(), added);
}

void ControlSocket::Server::expect_request(ClientAt client) {
  client->patience = loop_.after(options_.patience, [this, client] { clients_.erase(client); });
}

// The handler may destroy this object, so what is needed afterwards is kept here.
void ControlSocket::Server::serve(ClientAt client) {
  const std::shared_ptr<Server> self = shared_from_this();
  std::list<Client> served;
  served.splice(served.end(), clients_, client);
  if (!step(client) || !listener_) return;
  const bool reads = client->out.empty() && !client->has_line(options_.line);
  if (change(client->ready, reads ? EPOLLIN : EPOLLOUT)) clients_.splice(clients_.end(), served);
}

// Answers at most one request, so that a client that sends many does not keep the others waiting.
// Returns false if the client is done.
bool ControlSocket::Server::step(ClientAt client) {
  if (client->out.empty() && !client->has_line(options_.line) && !client->receive()) return false;
  if (client->out.empty() && client->has_line(options_.line)) answer(client);
  if (!client->out.empty() && !client->send()) return false;
  return !client->ended || !client->out.empty() || client->has_line(options_.line);
}

void ControlSocket::Server::answer(ClientAt client) {
  const size_t end = client->length();
  if (end > options_.line) {
    client->in.clear();
    client->ended = true;
    client->out = too_long("the line", options_.line);
    return;
  }
  client->request.line.assign(client->in, 0, end);
  client->in.erase(0, end + 1);
  expect_request(client);
  std::string& out = client->out;
  try {
    out = handler_(client->request);
    out.erase(std::remove(out.begin(), out.end(), kEnd), out.end());
    out += kEnd;
  } catch (const std::exception& error) {
    out = error_answer(error.what());
  }
  if (out.size() > options_.answer) out = too_long("the answer", options_.answer);
}

ControlSocket::ControlSocket(Loop& loop, const std::string& path, Handler handler,
                             const ControlOptions& options)
    : server_(std::make_shared<Server>(loop, path, std::move(handler), options)) {}

ControlSocket::~ControlSocket() { server_->close(); }

// ---- the client's side ----

namespace {

class Connection {
 public:
  Connection(std::string path, utime_t limit)
      : path_(std::move(path)), end_(Clock::now() + std::chrono::milliseconds(bounded(limit))) {}

  void open();
  void send(const std::string& line);
  std::string receive();

 private:
  using Clock = std::chrono::steady_clock;

  static utime_t bounded(utime_t limit) { return std::min(limit, utime_t{INT_MAX}); }
  void wait(short events);
  [[noreturn]] void fail(int error, const char* what) const {
    throw_error(error, concat({path_, ": ", what}));
  }

  const std::string path_;
  const Clock::time_point end_;
  const Descriptor socket_ = stream_socket();
};

void Connection::open() {
  const Address address(path_);
  while (connect(socket_.number(), address.get(), Address::size()) < 0) {
    if (errno == EAGAIN) {  // The queue is full, and nothing tells when there is room.
      wait(0);
    } else if (errno != EINTR) {
      fail(errno, "nobody answers");
    }
  }
}

// Waits for one of the events, or for 10 ms if there are none to wait for.
void Connection::wait(short events) {
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end_ - Clock::now());
  if (left.count() <= 0) fail(ETIMEDOUT, "no answer in time");
  pollfd waiting = {events == 0 ? -1 : socket_.number(), events, 0};
  const auto time = static_cast<int>(left.count());
  if (poll(&waiting, 1, events == 0 ? std::min(time, 10) : time) < 0 && errno != EINTR) {
    fail(errno, "cannot wait for the answer");
  }
}

// A daemon that refuses the client may close the connection before reading all of the request.
void Connection::send(const std::string& line) {
  for (size_t sent = 0; sent < line.size();) {
    const ssize_t size =
        ::send(socket_.number(), line.data() + sent, line.size() - sent, MSG_NOSIGNAL);
    if (size >= 0) {
      sent += static_cast<size_t>(size);
    } else if (errno == EAGAIN) {
      wait(POLLOUT);
    } else if (errno != EINTR) {
      return;
    }
  }
}

std::string Connection::receive() {
  std::string answer;
  char part[kPart];
  while (answer.empty() || answer.back() != kEnd) {
    wait(POLLIN);
    const ssize_t size = recv(socket_.number(), part, sizeof part, 0);
    if (size > 0) {
      answer.append(part, static_cast<size_t>(size));
    } else if (size == 0 || (errno != EAGAIN && errno != EINTR)) {
      fail(ECONNRESET, "the answer is not complete");
    }
  }
  answer.pop_back();
  return answer;
}

}  // namespace

std::string ask(const std::string& path, const std::string& line, utime_t limit) {
  if (line.find('\n') != std::string::npos) {
    throw std::invalid_argument("service::ask: a request is one line");
  }
  Connection daemon(path, limit);
  daemon.open();
  daemon.send(line + "\n");
  std::string answer = daemon.receive();
  if (answer.compare(0, kErrorSize, kError) != 0) return answer;
  answer.erase(0, kErrorSize);
  if (!answer.empty() && answer.back() == '\n') answer.pop_back();
  throw Refused(answer);
}

}  // namespace service
