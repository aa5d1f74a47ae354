// SPDX-License-Identifier: MIT
#include "service/ControlSocket.h"

#include "service/InstanceLock.h"
#include "service/internal/Descriptor.h"
#include "tests/support/faults.h"
#include "tests/support/files.h"
#include "util/logger.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using service::ask;
using service::ControlOptions;
using service::ControlSocket;
using service::Descriptor;
using service::Loop;
using service::Request;
using support::TempDir;

constexpr util::utime_t kCycle = 20;
constexpr util::utime_t kLong = 20000;

sockaddr_un address_of(const std::string& path) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  memcpy(address.sun_path, path.data(), path.size());
  return address;
}

// A socket that was made at the path; listens unless it is to be stale.
Descriptor socket_at(const std::string& path, bool listens) {
  Descriptor made(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const sockaddr_un address = address_of(path);
  EXPECT_EQ(0, bind(made.number(), reinterpret_cast<const sockaddr*>(&address), sizeof address));
  EXPECT_EQ(0, listens ? listen(made.number(), 5) : 0);
  return made;
}

// A client that does as it is told, never waits and never minds.
class Client {
 public:
  explicit Client(const std::string& path)
      : socket_(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)) {
    const sockaddr_un address = address_of(path);
    EXPECT_EQ(
        0, connect(socket_.number(), reinterpret_cast<const sockaddr*>(&address), sizeof address));
  }

  ssize_t send(const std::string& text) const {
    return ::write(socket_.number(), text.data(), text.size());
  }
  void end() const { shutdown(socket_.number(), SHUT_WR); }

  // What there is, NUL bytes as '|', and a '#' where the connection has ended.
  std::string received() {
    char part[4096];
    ssize_t size = 0;
    while ((size = ::read(socket_.number(), part, sizeof part)) > 0) {
      for (ssize_t i = 0; i < size; ++i) text_ += part[i] == '\0' ? '|' : part[i];
    }
    if ((size == 0 || errno == ECONNRESET) && (text_.empty() || text_.back() != '#')) text_ += '#';
    return text_;
  }

 private:
  Descriptor socket_;
  std::string text_;
};

// A daemon that answers in capitals, and its passes.
class Daemon {
 public:
  explicit Daemon(const ControlOptions& options = ControlOptions())
      : socket_(std::make_unique<ControlSocket>(
            loop_, path(), [this](const Request& request) { return answer(request); }, options)) {
    signal(SIGPIPE, SIG_DFL);
  }

  std::string path() const { return dir_.file("control"); }
  Loop& loop() { return loop_; }

  template <class Condition>
  bool run_until(Condition done) {
    for (int pass = 0; pass < 1000 && !done(); ++pass) loop_.runLoop(kCycle);
    return done();
  }

  // What ask() says, while the loop runs.
  std::string asked(const std::string& line, util::utime_t limit = kLong) {
    auto answer = std::async(std::launch::async, [&] { return ask(path(), line, limit); });
    EXPECT_TRUE(run_until(
        [&] { return answer.wait_for(std::chrono::seconds(0)) == std::future_status::ready; }));
    return answer.get();
  }

  void end() { socket_.reset(); }
  const std::vector<std::string>& requests() const { return requests_; }

 private:
  std::string answer(const Request& request) {
    requests_.push_back(request.line);
    if (request.line == "who") {
      return std::to_string(request.user) + " " + std::to_string(request.group) + " " +
             std::to_string(request.process);
    }
    if (request.line == "fail") throw std::invalid_argument("this cannot be done");
    if (request.line == "end") end();
    if (request.line.compare(0, 4, "big ") == 0) {
      return std::string(std::stoul(request.line.substr(4)), 'x');
    }
    std::string text = request.line;
    for (char& c : text) c = static_cast<char>(toupper(c));
    return text + "\n";
  }

  TempDir dir_;
  Loop loop_;
  std::vector<std::string> requests_;
  std::unique_ptr<ControlSocket> socket_;
};

int code_of_asking(const std::string& path, util::utime_t limit) {
  try {
    ask(path, "x", limit);
    return 0;
  } catch (const std::system_error& e) {
    return e.code().value();
  }
}

std::string no_answer(const Request&) { return ""; }

}  // namespace

TEST(ControlSocket, AnswersLines) {
  Daemon daemon;
  EXPECT_EQ("STATUS\n", daemon.asked("status"));
  EXPECT_EQ("\n", daemon.asked(""));
  EXPECT_EQ(std::string(300000, 'x'), daemon.asked("big 300000"));
}

TEST(ControlSocket, AnswersEachLineOfAClientInTurn) {
  Daemon daemon;
  Client client(daemon.path());
  client.send("one\ntwo\nthr");
  EXPECT_TRUE(daemon.run_until([&] { return client.received() == "ONE\n|TWO\n|"; }));
  client.send("ee\n");
  EXPECT_TRUE(daemon.run_until([&] { return client.received() == "ONE\n|TWO\n|THREE\n|"; }));
}

TEST(ControlSocket, AnswersALastLineWithoutALineFeed) {
  Daemon daemon;
  Client client(daemon.path());
  client.send("one\nlast");
  client.end();
  EXPECT_TRUE(daemon.run_until([&] { return client.received() == "ONE\n|LAST\n|#"; }));
}

TEST(ControlSocket, TakesAnyBytes) {
  Daemon daemon;
  Client client(daemon.path());
  client.send(std::string("\0\xff\x1b[\r\n", 6));
  EXPECT_TRUE(daemon.run_until([&] { return client.received() == "\xff\x1b[\r\n|"; }));
  EXPECT_EQ(std::string("\0\xff\x1b[\r", 5), daemon.requests().at(0));
}

TEST(ControlSocket, TellsWhoAsks) {
  Daemon daemon;
  EXPECT_EQ(
      std::to_string(geteuid()) + " " + std::to_string(getegid()) + " " + std::to_string(getpid()),
      daemon.asked("who"));
}

TEST(ControlSocket, AnswersWithTheTextOfAnException) {
  Daemon daemon;
  EXPECT_THAT([&] { daemon.asked("fail"); },
              testing::ThrowsMessage<service::Refused>("this cannot be done"));
  EXPECT_EQ("X\n", daemon.asked("x"));
}

TEST(ControlSocket, MayGoInsideItsHandler) {
  Daemon daemon;
  Client client(daemon.path());
  Client other(daemon.path());
  client.send("end\nmore\n");
  EXPECT_TRUE(daemon.run_until([&] { return client.received() == "END\n|#"; }));
  EXPECT_EQ("#", other.received());
  EXPECT_EQ(ENOENT, code_of_asking(daemon.path(), kLong));
}

TEST(ControlSocket, HasItsModeAndOwnerFromTheStart) {
  const TempDir dir;
  Loop loop;
  ControlOptions options;
  options.mode = 0620;
  options.group = getegid();
  const mode_t before = umask(0777);
  std::unique_ptr<ControlSocket> socket;
  {
    support::Recorder recorder({"link"});
    recorder.before = [&](const std::string&) { EXPECT_FALSE(dir.exists("control")); };
    socket = std::make_unique<ControlSocket>(loop, dir.file("control"), no_answer, options);
  }
  umask(before);
  struct stat made = {};
  EXPECT_EQ(0, lstat(dir.file("control").c_str(), &made));
  EXPECT_EQ(S_IFSOCK | 0620U, made.st_mode);
  EXPECT_EQ(getegid(), made.st_gid);
  EXPECT_EQ(std::vector<std::string>{"control"}, dir.list());
}

TEST(ControlSocket, ReplacesAStaleSocket) {
  const TempDir dir;
  { const Descriptor stale = socket_at(dir.file("control"), true); }
  Loop loop;
  const ControlSocket socket(loop, dir.file("control"), no_answer);
  const Client client(dir.file("control"));
  EXPECT_EQ(std::vector<std::string>{"control"}, dir.list());
}

TEST(ControlSocket, LeavesALiveSocketAlone) {
  Daemon daemon;
  Loop loop;
  EXPECT_THAT([&] { const ControlSocket second(loop, daemon.path(), no_answer); },
              testing::ThrowsMessage<service::AlreadyRunning>(
                  daemon.path() + " is in use by process " + std::to_string(getpid())));
  EXPECT_EQ("X\n", daemon.asked("x"));
}

TEST(ControlSocket, LeavesASocketAloneThatComesAtTheSameTime) {
  const TempDir dir;
  const std::string path = dir.file("control");
  { const Descriptor stale = socket_at(path, false); }
  std::unique_ptr<Descriptor> live;
  Loop loop;
  {
    support::Recorder recorder({"rename"});
    recorder.before = [&](const std::string&) {
      unlink(path.c_str());
      live = std::make_unique<Descriptor>(socket_at(path, true));
    };
    EXPECT_THROW(ControlSocket(loop, path, no_answer), service::AlreadyRunning);
  }
  const Client client(path);
  EXPECT_EQ(std::vector<std::string>{"control"}, dir.list());
}

TEST(ControlSocket, LeavesAnythingElseAlone) {
  const TempDir dir;
  dir.write("control", "precious");
  Loop loop;
  try {
    const ControlSocket socket(loop, dir.file("control"), no_answer);
    ADD_FAILURE() << "nothing thrown";
  } catch (const std::system_error& e) {
    EXPECT_EQ(EEXIST, e.code().value());
  }
  EXPECT_EQ("precious", dir.read("control"));
  EXPECT_EQ(std::vector<std::string>{"control"}, dir.list());
}

TEST(ControlSocket, RemovesItsOwnSocketOnly) {
  Daemon daemon;
  const pid_t child = fork();
  if (child == 0) {
    daemon.end();
    _exit(0);
  }
  waitpid(child, nullptr, 0);
  EXPECT_EQ("X\n", daemon.asked("x"));

  unlink(daemon.path().c_str());
  const Descriptor other = socket_at(daemon.path(), true);
  daemon.end();
  const Client client(daemon.path());
}

TEST(ControlSocket, TurnsAwayWhoIsTooMany) {
  ControlOptions options;
  options.clients = 2;
  Daemon daemon(options);
  auto first = std::make_unique<Client>(daemon.path());
  Client second(daemon.path());
  Client third(daemon.path());
  EXPECT_TRUE(daemon.run_until(
      [&] { return third.received() == "error: there are too many clients\n|#"; }));
  EXPECT_EQ("", second.received());
  first.reset();
  EXPECT_EQ("X\n", daemon.asked("x"));
}

TEST(ControlSocket, RefusesLinesAndAnswersThatAreTooLong) {
  ControlOptions options;
  options.line = 7;
  options.answer = 100;
  Daemon daemon(options);
  EXPECT_EQ("SEVENUP\n", daemon.asked("sevenup"));
  const char* const refusal = "error: the line is longer than 7 bytes\n|#";
  for (const char* text : {"too long\n", "ok\ntoo long", "too long"}) {
    SCOPED_TRACE(text);
    Client client(daemon.path());
    client.send(text);
    EXPECT_TRUE(daemon.run_until([&] {
      const std::string got = client.received();
      return got == refusal || got == std::string("OK\n|") + refusal;
    }));
  }
  EXPECT_EQ(99U, daemon.asked("big 99").size());
  EXPECT_THROW(daemon.asked("big 101"), service::Refused);
}

TEST(ControlSocket, LetsAClientGoThatSendsAByteNowAndThen) {
  ControlOptions options;
  options.patience = 100;
  Daemon daemon(options);
  Client slow(daemon.path());
  const service::Handle bytes = daemon.loop().every(10, [&](uint64_t) {
    if (slow.received().empty()) slow.send("x");
  });
  EXPECT_TRUE(daemon.run_until([&] { return slow.received() == "#"; }));
  EXPECT_TRUE(daemon.requests().empty());
}

TEST(ControlSocket, IsPatientFromOneRequestToTheNext) {
  ControlOptions options;
  options.patience = 200;
  Daemon daemon(options);
  Client client(daemon.path());
  for (int i = 0; i < 5; ++i) {
    client.send("x\n");
    const size_t expected = 3 * static_cast<size_t>(i + 1);
    EXPECT_TRUE(daemon.run_until([&] { return client.received().size() == expected; }));
    for (int pass = 0; pass < 4; ++pass) daemon.loop().runLoop(kCycle);
  }
  EXPECT_EQ("X\n|X\n|X\n|X\n|X\n|", client.received());
}

TEST(ControlSocket, KeepsOneAnswerForAClientThatNeverReadsAndLetsItGo) {
  ControlOptions options;
  options.patience = 300;
  Daemon daemon(options);
  Client silent(daemon.path());
  std::string many;
  for (int i = 0; i < 100; ++i) many += "big 1000000\n";
  silent.send(many);
  EXPECT_EQ("X\n", daemon.asked("x"));
  EXPECT_EQ((std::vector<std::string>{"big 1000000", "x"}), daemon.requests());
  for (int pass = 0; pass < 25; ++pass) daemon.loop().runLoop(kCycle);
  EXPECT_EQ('#', silent.received().back());
  EXPECT_GT(size_t{1000000}, silent.received().size());
}

TEST(ControlSocket, OutlivesAThousandClientsThatComeAndGo) {
  Daemon daemon;
  const int before = support::open_descriptors();
  for (int i = 0; i < 1000; ++i) {
    Client client(daemon.path());
    if (i % 4 > 0) client.send(i % 4 == 1 ? "x\n" : i % 4 == 2 ? "half" : "big 900000\n");
    if (i % 3 > 0) daemon.loop().runLoop(i % 3 == 1 ? 0 : 2);
    if (i % 5 == 0) client.received();
  }
  EXPECT_EQ("X\n", daemon.asked("x"));
  EXPECT_TRUE(daemon.run_until([&] { return support::open_descriptors() == before; }));
}

TEST(ControlSocket, WaitsForDescriptorsWithoutSpinning) {
  Daemon daemon;
  Client client(daemon.path());
  client.send("x\n");
  support::Captured log(stderr);
  util::logger::rootLogger()->enable(util::WARNING);
  {
    const support::Fault fault("accept4", EMFILE, support::Fault::kEvery);
    for (int pass = 0; pass < 15; ++pass) daemon.loop().runLoop(kCycle);
    EXPECT_GE(fault.uses(), 1);
    EXPECT_LE(fault.uses(), 4);
  }
  EXPECT_TRUE(daemon.run_until([&] { return client.received() == "X\n|"; }));
  util::logger::rootLogger()->flush();
  util::logger::rootLogger()->clear_components();
  const std::string text = log.text();
  const std::string warning =
      "WARNING: " + daemon.path() + " cannot accept clients at present: Too many open files\n";
  ASSERT_NE(std::string::npos, text.find(warning));
  EXPECT_EQ(text.find(warning), text.rfind(warning));
}

TEST(ControlSocket, LeavesNothingBehindWhenACallFails) {
  const TempDir dir;
  Loop loop;
  const int before = support::open_descriptors();
  for (const char* call :
       {"socket", "bind", "lchown", "chmod", "listen", "lstat", "link", "epoll_ctl"}) {
    SCOPED_TRACE(call);
    const support::Fault fault(call, EACCES);
    EXPECT_THROW(ControlSocket(loop, dir.file("control"), no_answer), std::exception);
    EXPECT_TRUE(fault.fired());
    EXPECT_TRUE(dir.list().empty());
  }
  EXPECT_EQ(before, support::open_descriptors());
  EXPECT_THROW(ControlSocket(loop, dir.file(std::string(200, 'x')), no_answer), std::system_error);
}

TEST(ControlSocket, LosesNoMoreThanAClientWhenACallFails) {
  Daemon daemon;
  for (const char* call : {"accept4", "getsockopt", "recv", "send", "epoll_ctl"}) {
    for (const int error : {EINTR, EAGAIN, EIO, ECONNABORTED, ENOMEM}) {
      SCOPED_TRACE(call);
      Client client(daemon.path());
      client.send("x\n");
      {
        const support::Fault fault(call, error);
        EXPECT_TRUE(daemon.run_until([&] { return fault.fired(); }));
      }
      EXPECT_EQ("Y\n", daemon.asked("y"));
      EXPECT_NE("", client.received());
    }
  }
}

TEST(Ask, SaysWhyThereIsNoAnswer) {
  const TempDir dir;
  const std::string path = dir.file("control");
  EXPECT_EQ(ENOENT, code_of_asking(path, kLong));
  { const Descriptor stale = socket_at(path, false); }
  EXPECT_EQ(ECONNREFUSED, code_of_asking(path, kLong));
  unlink(path.c_str());
  const Descriptor silent = socket_at(path, true);
  EXPECT_EQ(ETIMEDOUT, code_of_asking(path, 50));
  std::vector<std::unique_ptr<Client>> queue;
  for (int i = 0; i < 5; ++i) queue.push_back(std::make_unique<Client>(path));
  EXPECT_EQ(ETIMEDOUT, code_of_asking(path, 50)) << "no room in the queue";
  EXPECT_EQ(ENAMETOOLONG, code_of_asking(std::string(200, 'x'), kLong));
  EXPECT_THROW(ask(path, "two\nlines", kLong), std::invalid_argument);
}

TEST(Ask, KnowsAnAnswerThatWasCut) {
  const TempDir dir;
  const Descriptor listener = socket_at(dir.file("control"), true);
  auto answer =
      std::async(std::launch::async, [&] { return code_of_asking(dir.file("control"), kLong); });
  const Descriptor client(accept4(listener.number(), nullptr, nullptr, SOCK_CLOEXEC));
  EXPECT_EQ(6, write(client.number(), "half\n.", 6));
  shutdown(client.number(), SHUT_RDWR);
  EXPECT_EQ(ECONNRESET, answer.get());
}
