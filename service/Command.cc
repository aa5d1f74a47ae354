// SPDX-License-Identifier: MIT
#include "service/Command.h"

#include "service/internal/Descriptor.h"
#include "service/internal/concat.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace service {
namespace {

constexpr size_t kPart = 16384;  // bytes read at a time

// A daemon that has closed its standard streams gets their numbers for other descriptors. What is
// handed to the program must have another number, since its streams will be there.
Descriptor above_streams(Descriptor from) {
  if (from.number() > STDERR_FILENO) return from;
  return Descriptor(fcntl(from.number(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1),
                    "cannot duplicate a descriptor");
}

// A file in memory: writing to it does not block even if the program never reads.
Descriptor file_of(const std::string& text) {
  const char* const what = "cannot make a standard input";
  if (text.empty()) return above_streams(Descriptor(open("/dev/null", O_RDONLY | O_CLOEXEC), what));
  Descriptor file(memfd_create("input", MFD_CLOEXEC), what);
  for (size_t written = 0; written < text.size();) {
    const ssize_t size = write(file.number(), text.data() + written, text.size() - written);
    if (size < 0 && errno != EINTR) throw_errno(what);
    written += static_cast<size_t>(std::max(size, ssize_t{0}));
  }
  if (lseek(file.number(), 0, SEEK_SET) < 0) throw_errno(what);
  return above_streams(std::move(file));
}

// How a program starts: in a process group of its own, with the default handling of all signals.
class Setup {
 public:
  Setup() {
    posix_spawn_file_actions_init(&actions_);
    posix_spawnattr_init(&attributes_);
    sigset_t signals;
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&attributes_, &signals);
    sigfillset(&signals);
    posix_spawnattr_setsigdefault(&attributes_, &signals);
    posix_spawnattr_setpgroup(&attributes_, 0);
    posix_spawnattr_setflags(
        &attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
  }
  ~Setup() {
    posix_spawnattr_destroy(&attributes_);
    posix_spawn_file_actions_destroy(&actions_);
  }
  Setup(const Setup&) = delete;
  Setup& operator=(const Setup&) = delete;

  void put(const Descriptor& from, int to) {
    check(posix_spawn_file_actions_adddup2(&actions_, from.number(), to));
  }
  void close_the_others() {
    check(posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1));
  }
  void enter(const std::string& folder) {
    check(posix_spawn_file_actions_addchdir_np(&actions_, folder.c_str()));
  }

  const posix_spawn_file_actions_t* actions() const { return &actions_; }
  const posix_spawnattr_t* attributes() const { return &attributes_; }

 private:
  static void check(int error) {
    if (error != 0) throw_error(error, "cannot run a program");
  }

  posix_spawn_file_actions_t actions_;
  posix_spawnattr_t attributes_;
};

// The texts as a null-terminated array. posix_spawnp() takes it as that of a program's own main
// function, but does not change the texts.
std::vector<char*> pointers(const std::vector<std::string>& texts) {
  std::vector<char*> all(texts.size() + 1);
  std::transform(texts.begin(), texts.end(), all.begin(),
                 [](const std::string& text) { return const_cast<char*>(text.c_str()); });
  return all;
}

pid_t spawn(const Command& command, const Descriptor (&streams)[3]) {
  Setup setup;
  for (int stream = 0; stream < 3; ++stream) setup.put(streams[stream], stream);
  setup.close_the_others();
  if (!command.folder.empty()) setup.enter(command.folder);
  std::vector<std::string> environment;
  for (const auto& [name, value] : command.environment) {
    environment.emplace_back(name + "=").append(value);
  }

  pid_t process = 0;
  const std::string& program = command.arguments[0];
  const int error = posix_spawnp(&process, program.c_str(), setup.actions(), setup.attributes(),
                                 pointers(command.arguments).data(), pointers(environment).data());
  if (error == 0) return process;
  const char* const in = command.folder.empty() ? "" : " in ";
  throw_error(error, concat({"cannot run ", program, in, command.folder}));
}

}  // namespace

// A running program. Lives until the program has ended, even if its Process is gone, so that its
// status is collected.
class UTIL_HIDDEN Process::Run : public std::enable_shared_from_this<Run> {
 public:
  using Done = std::function<void(const Command::Result&)>;

  Run(Loop& loop, const Command& command, Done done);
  ~Run() { kill_group(SIGKILL); }
  Run(const Run&) = delete;
  Run& operator=(const Run&) = delete;

  void start(const Command& command);
  void abandon();
  pid_t process() const { return process_; }

 private:
  // One of the streams that the program writes to.
  struct Stream {
    std::string& kept;
    Command::Line on_line;
    std::string line;
    Descriptor end;
    Handle ready;
  };

  Descriptor open(Stream& stream);
  ssize_t read(Stream& stream);
  void read_rest(Stream& stream);
  void take(Stream& stream, const char* text, size_t size);
  void keep(std::string& in, const char* text, size_t size);
  void hand_on(Stream& stream);
  void time_is_up();
  void ended(int status);
  void kill_group(int signal) const;

  Loop& loop_;
  const size_t limit_;
  const util::utime_t grace_;
  Command::Result result_ = {};
  Stream output_;
  Stream errors_;
  Done done_;
  bool abandoned_ = false;
  pid_t process_ = 0;  // 0 when it has ended
  Handle timer_;
  Handle exit_;
};

Process::Run::Run(Loop& loop, const Command& command, Done done)
    : loop_(loop),
      limit_(command.limit),
      grace_(command.grace),
      output_{result_.output, command.on_output, {}, {}, {}},
      errors_{result_.errors, command.on_errors, {}, {}, {}},
      done_(std::move(done)) {
  if (command.time_limit > 0) {
    timer_ = loop.after(command.time_limit, [this] { time_is_up(); });
  }
}

void Process::Run::start(const Command& command) {
  const Descriptor streams[] = {file_of(command.input), open(output_), open(errors_)};
  process_ = spawn(command, streams);
  try {
    exit_ =
        loop_.on_exit(process_, [self = shared_from_this()](int status) { self->ended(status); });
  } catch (const std::exception&) {
    kill_group(SIGKILL);
    while (waitpid(process_, nullptr, 0) < 0 && errno == EINTR) continue;
    process_ = 0;
    throw;
  }
}

// Destroys what the callbacks captured, except for a running one, which hand_on() owns.
void Process::Run::abandon() {
  abandoned_ = true;
  timer_.cancel();
  for (Stream* stream : {&output_, &errors_}) {
    stream->ready.cancel();
    stream->on_line = nullptr;
  }
  done_ = nullptr;
  kill_group(SIGKILL);
}

// Returns the program's end of the pipe.
Descriptor Process::Run::open(Stream& stream) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) < 0) throw_errno("cannot make a pipe");
  stream.end = Descriptor(ends[0]);
  Descriptor other(ends[1]);
  if (fcntl(ends[0], F_SETFL, O_NONBLOCK) < 0) throw_errno("cannot make a pipe");
  stream.ready = loop_.watch(ends[0], EPOLLIN, [this, &stream](uint32_t) {
    const std::shared_ptr<Run> kept = shared_from_this();
    const ssize_t size = read(stream);
    if (size == 0 || (size < 0 && errno != EAGAIN && errno != EINTR)) stream.ready.cancel();
  });
  return above_streams(std::move(other));
}

ssize_t Process::Run::read(Stream& stream) {
  char part[kPart];
  const ssize_t size = ::read(stream.end.number(), part, sizeof part);
  if (size > 0) take(stream, part, static_cast<size_t>(size));
  return size;
}

// Reads only what is there now, since processes that the program left behind may go on writing.
void Process::Run::read_rest(Stream& stream) {
  int left = 0;
  if (ioctl(stream.end.number(), FIONREAD, &left) < 0) left = 0;
  while (left > 0 && !abandoned_) {
    const ssize_t size = read(stream);
    if (size == 0 || (size < 0 && errno != EINTR)) break;
    left -= static_cast<int>(size);
  }
  if (stream.on_line && !stream.line.empty()) hand_on(stream);
}

void Process::Run::take(Stream& stream, const char* text, size_t size) {
  if (!stream.on_line) return keep(stream.kept, text, size);
  const char* const end = text + size;
  while (text < end && !abandoned_) {
    const char* const feed = std::find(text, end, '\n');
    keep(stream.line, text, static_cast<size_t>(feed - text));
    if (feed == end) return;
    hand_on(stream);
    text = feed + 1;
  }
}

void Process::Run::keep(std::string& in, const char* text, size_t size) {
  const size_t room = limit_ - std::min(limit_, in.size());
  in.append(text, std::min(size, room));
  if (size > room) result_.cut = true;
}

void Process::Run::hand_on(Stream& stream) {
  std::string line;
  line.swap(stream.line);
  Command::Line call;
  call.swap(stream.on_line);
  call(line);
  if (!abandoned_) call.swap(stream.on_line);
}

void Process::Run::time_is_up() {
  result_.timed_out = true;
  kill_group(SIGTERM);
  timer_ = loop_.after(grace_, [this] { kill_group(SIGKILL); });
}

void Process::Run::ended(int status) {
  if (result_.timed_out) kill_group(SIGKILL);  // the rest of the group
  process_ = 0;
  exit_.cancel();
  timer_.cancel();
  for (Stream* stream : {&output_, &errors_}) {
    stream->ready.cancel();
    read_rest(*stream);
  }
  if (abandoned_) return;
  result_.status = status;
  const Done done = std::move(done_);
  abandon();
  if (done) done(result_);
}

void Process::Run::kill_group(int signal) const {
  if (process_ <= 0 || kill(-process_, signal) == 0) return;
  kill(process_, signal);  // an emulator starts a program before it has its group
}

// ---- Process ----

Process::Process() noexcept = default;

Process::Process(std::shared_ptr<Run> run) noexcept : run_(std::move(run)) {}

Process::Process(Process&& from) noexcept = default;

Process& Process::operator=(Process&& from) noexcept {
  Process taken(std::move(from));
  std::swap(run_, taken.run_);
  return *this;
}

Process::~Process() {
  if (run_) run_->abandon();
}

pid_t Process::id() const noexcept { return run_ ? run_->process() : 0; }

// ---- Command ----

std::string Command::Result::end() const {
  if (timed_out) return "took too long";
  if (status == -1) return "ended with a status that was lost";
  if (WIFEXITED(status)) return "ended with status " + decimal(WEXITSTATUS(status));
  const int signal = WTERMSIG(status);
  return concat({"was ended by signal ", decimal(signal), " (", strsignal(signal), ")"});
}

Command::Command(std::vector<std::string> program_and_arguments)
    : arguments(std::move(program_and_arguments)) {
  for (char** variable = environ; variable != nullptr && *variable != nullptr; ++variable) {
    const char* const end = strchr(*variable, '=');
    if (end != nullptr) environment[{*variable, static_cast<size_t>(end - *variable)}] = end + 1;
  }
}

Process Command::start(Loop& loop, std::function<void(const Result&)> done) const {
  if (arguments.empty()) throw std::invalid_argument("service::Command: no program is named");
  const auto run = std::make_shared<Process::Run>(loop, *this, std::move(done));
  run->start(*this);
  return Process(run);
}

}  // namespace service
