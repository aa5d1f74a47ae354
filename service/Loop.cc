// SPDX-License-Identifier: MIT
#include "service/Loop.h"

#include "service/internal/Descriptor.h"
#include "service/internal/SignalInbox.h"
#include "service/internal/TimerQueue.h"
#include "util/logger.h"

#include <sys/wait.h>

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <climits>
#include <cstring>
#include <ctime>
#include <list>
#include <stdexcept>
#include <utility>
#include <vector>

namespace service {
namespace {

using util::utime_t;

// Instants and durations are nanoseconds of the monotonic clock.
constexpr int64_t kMillisecond = 1000000;
constexpr int64_t kForever = INT64_MAX / 2;

// A sub-loop is late in whole milliseconds of another clock, so waiting ends some of them early.
constexpr int64_t kLeastMargin = 3 * kMillisecond;
constexpr int kBatch = 64;

int64_t now() {
  timespec read = {};
  clock_gettime(CLOCK_MONOTONIC, &read);
  return int64_t{read.tv_sec} * 1000 * kMillisecond + read.tv_nsec;
}

int64_t duration(utime_t milliseconds) {
  const auto most = static_cast<utime_t>(kForever / kMillisecond);
  return static_cast<int64_t>(std::min(milliseconds, most)) * kMillisecond;
}

[[noreturn]] void refuse_empty() {
  throw std::invalid_argument("service::Loop: the callback is empty");
}

}  // namespace

RegistrationError::RegistrationError(int error, std::string text)
    : system_exception(error), text_(std::move(text)) {}

const char* RegistrationError::what() const noexcept { return text_.c_str(); }

// ---- registrations ----

// Something that the loop waits for. Its handle owns it; the loop knows it while it may be called.
class Registration {
 public:
  using Core = Loop::Core;

  explicit Registration(Core& core) : core_(&core) {}
  Registration(const Registration&) = delete;
  Registration& operator=(const Registration&) = delete;
  virtual ~Registration() = default;

  Core* core() const { return core_; }  // null once it is not called any more

  void leave() noexcept;            // its loop
  virtual void end() noexcept = 0;  // leaves and destroys what the callback captured

 private:
  virtual void remove() noexcept = 0;  // from the tables of the loop

  Core* core_;
};

namespace {

template <class... Arguments>
class Calling : public Registration {
 public:
  using Callback = std::function<void(Arguments...)>;

  Calling(Core& core, Callback&& callback) : Registration(core), callback_(std::move(callback)) {
    if (!callback_) refuse_empty();
  }

  // A callback may destroy its registration; then it still lives until it returns.
  void call(Arguments... arguments);
  void call_once(Arguments... arguments) {
    leave();
    const Callback callback = std::move(callback_);
    callback(arguments...);
  }

  void end() noexcept override {
    leave();
    const Callback dropped = std::move(callback_);
  }

 private:
  Callback callback_;
};

struct Watch final : Calling<uint32_t> {
  using Calling::Calling;
  void remove() noexcept override;

  int descriptor = -1;
  uint32_t events = 0;
  uint32_t number = 0;  // tells its events from those of an earlier watch of the descriptor
};

struct Timer final : Timed, Calling<> {
  using Calling::Calling;
  void fire(int64_t at);
  void remove() noexcept override;

  int64_t interval = 0;  // 0: once
};

struct Signal final : Calling<> {
  using Calling::Calling;
  void remove() noexcept override;

  int number = 0;
  bool due = false;
};

struct Child final : Calling<int> {
  using Calling::Calling;
  void remove() noexcept override;

  pid_t process = 0;
  int status = 0;
  bool due = false;
};

// A callback may change the table, so the next one is looked up after each call.
template <class T>
T* take_due(const std::list<T*>& table) {
  for (T* const one : table) {
    if (std::exchange(one->due, false)) return one;
  }
  return nullptr;
}

}  // namespace

// ---- the inside of the loop ----

// It is also the sub-loop that does the waiting.
class UTIL_HIDDEN Loop::Core final : public util::EventLoop {
 public:
  explicit Core(util::logger* log) : log_(log), epoll_(new_epoll()), forks_(forks()) {}
  ~Core();
  Core(const Core&) = delete;
  Core& operator=(const Core&) = delete;

  void begin_pass(utime_t timeout);
  void end_pass();
  void runLoop(utime_t) override;
  const char* name() override { return "service::Loop"; }

  void add(Watch& watch);
  void add(Timer& timer) { timers_.add(timer); }
  void add(Signal& signal);
  void add(Child& child);
  void change(Watch& watch, uint32_t events);
  void postpone_first() { timers_.postpone_front(); }

  void remove(Watch& watch) noexcept;
  void remove(Timer& timer) noexcept { timers_.remove(timer); }
  void remove(Signal& signal) noexcept;
  void remove(Child& child) noexcept;

  Registration* running = nullptr;  // null once it has left the loop
  uint64_t missed = 0;              // calls missed by the running timer
  bool stopped = false;
  std::vector<Handle> stopping;

 private:
  Descriptor new_epoll() const;
  void replace_epoll();
  void take_over();
  void repair();
  bool repaired() noexcept;
  bool forked() const { return forks_ != forks(); }
  Watch* watch_of(const epoll_event& event) const;

  void serve(int64_t end);
  bool fetch(int64_t end);
  int patience(int64_t at, int64_t end) const;
  void dispatch(const epoll_event& event);
  void run_timers();
  void run_signals();
  void run_children();

  util::logger* const log_;
  SignalInbox inbox_;
  Descriptor epoll_;
  unsigned forks_;
  bool damaged_ = false;  // the epoll set is to be replaced

  std::vector<Watch*> watches_;  // by descriptor
  uint32_t last_number_ = 0;
  TimerQueue timers_;
  std::list<Signal*> signals_;
  std::list<Child*> children_;
  Handle child_signal_;
  bool look_for_children_ = false;

  epoll_event batch_[kBatch];
  int batched_ = 0;
  int served_ = 0;

  bool inside_ = false;
  bool waited_ = false;
  utime_t timeout_ = 0;
  utime_t wall_start_ = 0;
  int64_t margin_ = 0;
  int64_t end_ = 0;       // of the waiting
  int64_t lateness_ = 0;  // in waking up, the worst of recent passes
};

void Registration::leave() noexcept {
  if (core_ == nullptr) return;
  remove();
  if (core_->running == this) core_->running = nullptr;
  core_ = nullptr;
}

namespace {

template <class... Arguments>
void Calling<Arguments...>::call(Arguments... arguments) {
  Registration*& running = core()->running;
  running = this;
  Callback callback = std::move(callback_);
  callback(arguments...);
  if (running == this) callback_ = std::move(callback);
  running = nullptr;
}

void Watch::remove() noexcept { core()->remove(*this); }
void Timer::remove() noexcept { core()->remove(*this); }
void Signal::remove() noexcept { core()->remove(*this); }
void Child::remove() noexcept { core()->remove(*this); }

void Timer::fire(int64_t at) {
  if (interval == 0) return call_once();
  const int64_t missed = (at - due) / interval;
  due += (missed + 1) * interval;
  core()->missed = static_cast<uint64_t>(missed);
  core()->postpone_first();
  call();
}

// An event says which watch it is for; one of the inbox has the number 0.
epoll_event event_for(uint32_t events, int descriptor, uint32_t number) {
  epoll_event event = {};
  event.events = events;
  event.data.u64 = uint64_t{number} << 32 | static_cast<uint32_t>(descriptor);
  return event;
}

uint32_t number_in(const epoll_event& event) { return static_cast<uint32_t>(event.data.u64 >> 32); }

bool control(const Descriptor& epoll, int operation, const Watch& watch) {
  epoll_event event = event_for(watch.events, watch.descriptor, watch.number);
  return epoll_ctl(epoll.number(), operation, watch.descriptor, &event) == 0;
}

[[noreturn]] void refuse(const std::string& what, int error, const char* why = nullptr) {
  const std::string text = why != nullptr ? why : util::system_exception(error).what();
  throw RegistrationError(error, what + ": " + text);
}

[[noreturn]] void refuse(const Watch& watch, int error) {
  const char* const why = error == EPERM    ? "regular files and folders are always ready"
                          : error == EEXIST ? "it is watched already"
                                            : nullptr;
  refuse("descriptor " + std::to_string(watch.descriptor) + " cannot be watched", error, why);
}

}  // namespace

Loop::Core::~Core() {
  for (Watch* const watch : watches_) {
    if (watch != nullptr) watch->end();
  }
  while (!timers_.empty()) static_cast<Timer*>(timers_.front())->end();
  while (!children_.empty()) children_.front()->end();
  while (!signals_.empty()) signals_.front()->end();
}

// ---- tables ----

void Loop::Core::add(Watch& watch) {
  repair();
  const auto place = static_cast<size_t>(watch.descriptor);
  watch.number = ++last_number_ != 0 ? last_number_ : ++last_number_;
  if (!control(epoll_, EPOLL_CTL_ADD, watch)) {
    const bool watched = place < watches_.size() && watches_[place] != nullptr;
    // Without a watch, this is left of a descriptor that was closed while a copy of it was open.
    const bool left_behind = errno == EEXIST && !watched;
    if (!left_behind || !control(epoll_, EPOLL_CTL_MOD, watch)) refuse(watch, errno);
  }
  if (place >= watches_.size()) watches_.resize(place + 1);
  Watch* const closed = std::exchange(watches_[place], &watch);
  if (closed != nullptr) closed->end();
}

void Loop::Core::change(Watch& watch, uint32_t events) {
  repair();
  const uint32_t before = std::exchange(watch.events, events);
  if (control(epoll_, EPOLL_CTL_MOD, watch)) return;
  watch.events = before;
  refuse(watch, errno);
}

// If the descriptor belongs to a later watch, the epoll set has nothing left of this one.
void Loop::Core::remove(Watch& watch) noexcept {
  Watch*& entry = watches_[static_cast<size_t>(watch.descriptor)];
  if (entry != &watch) return;
  entry = nullptr;
  if (!forked()) control(epoll_, EPOLL_CTL_DEL, watch);
}

void Loop::Core::add(Signal& signal) {
  repair();
  signals_.push_back(&signal);
  try {
    inbox_.want(signal.number);
  } catch (const util::system_exception& failure) {
    signals_.pop_back();
    refuse("signal " + std::to_string(signal.number) + " cannot be handled",
           failure.error_number());
  }
}

void Loop::Core::remove(Signal& signal) noexcept {
  signals_.remove(&signal);
  inbox_.drop(signal.number);
}

void Loop::Core::add(Child& child) {
  repair();
  const std::string what = "process " + std::to_string(child.process) + " cannot be awaited";
  for (const Child* const other : children_) {
    if (other->process == child.process) refuse(what, EEXIST, "it is awaited already");
  }
  siginfo_t state = {};
  if (waitid(P_PID, static_cast<id_t>(child.process), &state, WEXITED | WNOHANG | WNOWAIT) < 0) {
    refuse(what, errno);
  }
  if (!child_signal_) {
    auto signal = std::make_unique<Signal>(*this, [this] { look_for_children_ = true; });
    signal->number = SIGCHLD;
    add(*signal);
    child_signal_ = Handle(std::move(signal));
  }
  children_.push_back(&child);
  look_for_children_ = true;
}

void Loop::Core::remove(Child& child) noexcept {
  children_.remove(&child);
  if (children_.empty()) child_signal_.cancel();
}

// ---- the epoll set ----

Descriptor Loop::Core::new_epoll() const {
  Descriptor epoll(epoll_create1(EPOLL_CLOEXEC));
  epoll_event event = event_for(EPOLLIN, inbox_.descriptor(), 0);
  if (epoll_ctl(epoll.number(), EPOLL_CTL_ADD, inbox_.descriptor(), &event) < 0) {
    throw util::system_exception();
  }
  return epoll;
}

void Loop::Core::replace_epoll() {
  Descriptor fresh = new_epoll();
  for (const Watch* const watch : watches_) {
    const bool closed = watch != nullptr && !control(fresh, EPOLL_CTL_ADD, *watch);
    if (closed && errno != EBADF && errno != EPERM) throw util::system_exception();
  }
  epoll_ = std::move(fresh);
  damaged_ = false;
}

// For a forked process: the epoll set, the inbox's descriptor and the children belong to its
// parent, and the handlers are gone.
void Loop::Core::take_over() {
  inbox_.replace_descriptor();
  damaged_ = true;
  served_ = batched_ = 0;
  while (!children_.empty()) children_.front()->end();
  for (const Signal* const signal : signals_) inbox_.want(signal->number);
  forks_ = forks();
}

void Loop::Core::repair() {
  if (forked()) take_over();
  if (damaged_) replace_epoll();
}

bool Loop::Core::repaired() noexcept {
  try {
    repair();
    return true;
  } catch (const util::system_exception& failure) {
    UTIL_LOG(log_, util::WARNING, "the epoll set cannot be made anew: %s", failure.what());
    return false;
  }
}

Watch* Loop::Core::watch_of(const epoll_event& event) const {
  const auto place = static_cast<uint32_t>(event.data.u64);
  Watch* const watch = place < watches_.size() ? watches_[place] : nullptr;
  return watch != nullptr && watch->number == number_in(event) ? watch : nullptr;
}

// ---- a pass ----

void Loop::Core::begin_pass(utime_t timeout) {
  assert(!inside_);
  inside_ = true;
  waited_ = false;
  timeout_ = timeout;
  wall_start_ = util::Timer::now();
  margin_ = std::min(duration(timeout) / 10, kLeastMargin + lateness_);
  end_ = now() + duration(timeout) - margin_;
  if (!children_.empty()) look_for_children_ = true;  // in case someone else handles SIGCHLD now
}

// A pass that had no time to wait serves what is ready at its end, which is not called late.
void Loop::Core::end_pass() {
  if (!waited_) serve(now());
  inside_ = false;
}

void Loop::Core::runLoop(utime_t) {
  if (end_ - now() < kMillisecond) return;
  waited_ = true;
  serve(end_);
  if (end_ - now() >= kMillisecond) return;  // the system refused to wait
  // The pass goes by the system's time. If that was set back, wait for the rest too, which would be
  // slept otherwise.
  const int64_t spent = duration(util::Timer::now() - wall_start_);
  const int64_t left = duration(timeout_) - margin_ - spent;
  if (left > 2 * kMillisecond) serve(now() + left);
}

// Serves at least one batch, even without time; events beyond that wait for the next pass.
void Loop::Core::serve(int64_t end) {
  const bool overdue = now() >= end;
  do {
    const bool sound = repaired();
    const bool working = served_ < batched_ || (!forked() && fetch(sound ? end : 0));
    run_timers();
    run_children();
    while (served_ < batched_) {
      dispatch(batch_[served_++]);
      run_timers();
      if (!overdue && now() >= end) return;
    }
    if (!sound || !working) return;
  } while (end - now() >= kMillisecond);
}

// Returns false if the system refuses.
bool Loop::Core::fetch(int64_t end) {
  const int64_t start = now();
  const int timeout = patience(start, end);
  const int count = epoll_wait(epoll_.number(), batch_, kBatch, timeout);
  served_ = 0;
  batched_ = std::max(count, 0);
  if (count < 0 && errno != EINTR) {
    damaged_ = true;
    return false;
  }
  if (count == 0 && timeout > 0) {
    const int64_t late = std::min(now() - start - timeout * kMillisecond, duration(timeout_) / 10);
    lateness_ = std::max(late, lateness_ - lateness_ / 4);
  }
  // Events for nobody come from a descriptor that was closed while a copy of it is open, and would
  // keep coming.
  for (int i = 0; i < batched_; ++i) {
    if (number_in(batch_[i]) != 0 && watch_of(batch_[i]) == nullptr) damaged_ = true;
  }
  return true;
}

// How many milliseconds to wait: until `end` at most, and not less than the next timer needs.
int Loop::Core::patience(int64_t at, int64_t end) const {
  if (look_for_children_) return 0;
  int64_t wait = (end - at) / kMillisecond;
  if (!timers_.empty()) {
    wait = std::min(wait, (timers_.next_due() - at + kMillisecond - 1) / kMillisecond);
  }
  return static_cast<int>(std::max(int64_t{0}, std::min(wait, int64_t{INT_MAX})));
}

void Loop::Core::dispatch(const epoll_event& event) {
  if (number_in(event) == 0) {
    run_signals();
    run_children();
  } else if (Watch* const watch = watch_of(event)) {
    watch->call(event.events);
  }
}

// Calls the timers that are due now; one that is added meanwhile has its turn later.
void Loop::Core::run_timers() {
  if (timers_.empty()) return;
  const int64_t at = now();
  const uint64_t added = timers_.next_order();
  while (!timers_.empty() && timers_.next_due() <= at && timers_.front()->order < added) {
    static_cast<Timer*>(timers_.front())->fire(at);
  }
}

void Loop::Core::run_signals() {
  inbox_.clear();
  bool came[NSIG] = {};
  for (int number = 1; number < NSIG; ++number) came[number] = inbox_.take(number);
  for (Signal* const signal : signals_) signal->due = came[signal->number];
  while (Signal* const signal = take_due(signals_)) signal->call();
}

void Loop::Core::run_children() {
  if (!std::exchange(look_for_children_, false)) return;
  for (Child* const child : children_) {
    const pid_t ended = waitpid(child->process, &child->status, WNOHANG);
    if (ended < 0) child->status = -1;
    child->due = ended == child->process || (ended < 0 && errno == ECHILD);
  }
  while (Child* const child = take_due(children_)) child->call_once(child->status);
}

// ---- Handle ----

Handle::Handle() noexcept = default;

Handle::Handle(std::unique_ptr<Registration> registration) noexcept
    : registration_(std::move(registration)) {}

Handle::Handle(Handle&& from) noexcept = default;

Handle& Handle::operator=(Handle&& from) noexcept {
  Handle taken(std::move(from));
  std::swap(registration_, taken.registration_);
  return *this;
}

Handle::~Handle() { cancel(); }

void Handle::cancel() noexcept {
  const std::unique_ptr<Registration> ended = std::move(registration_);
  if (ended) ended->leave();
}

void Handle::change(uint32_t events) {
  auto* const watch = dynamic_cast<Watch*>(registration_.get());
  if (watch == nullptr || watch->core() == nullptr) {
    throw std::logic_error("service::Handle::change: no descriptor is watched");
  }
  watch->core()->change(*watch, events);
}

Handle::operator bool() const noexcept { return registration_ && registration_->core() != nullptr; }

// ---- Loop ----

Loop::Loop() : Loop(util::logger::rootLogger()) {}

Loop::Loop(util::logger* log) : SuperLoop(log), core_(std::make_unique<Core>(log)) {}

Loop::~Loop() = default;

Handle Loop::watch(int descriptor, uint32_t readiness, std::function<void(uint32_t)> callback) {
  auto watch = std::make_unique<Watch>(*core_, std::move(callback));
  watch->descriptor = descriptor;
  watch->events = readiness;
  core_->add(*watch);
  return Handle(std::move(watch));
}

Handle Loop::after(utime_t delay, std::function<void()> callback) {
  auto timer = std::make_unique<Timer>(*core_, std::move(callback));
  timer->due = now() + duration(delay);
  core_->add(*timer);
  return Handle(std::move(timer));
}

Handle Loop::every(utime_t interval, std::function<void(uint64_t missed)> callback) {
  if (interval == 0) throw std::invalid_argument("service::Loop::every: an interval of 0");
  if (!callback) refuse_empty();
  auto tick = [core = core_.get(), call = std::move(callback)] { call(core->missed); };
  auto timer = std::make_unique<Timer>(*core_, std::move(tick));
  timer->interval = duration(interval);
  timer->due = now() + timer->interval;
  core_->add(*timer);
  return Handle(std::move(timer));
}

Handle Loop::on_signal(int number, std::function<void()> callback) {
  auto signal = std::make_unique<Signal>(*core_, std::move(callback));
  signal->number = number;
  core_->add(*signal);
  return Handle(std::move(signal));
}

Handle Loop::on_exit(pid_t child, std::function<void(int status)> callback) {
  auto awaited = std::make_unique<Child>(*core_, std::move(callback));
  awaited->process = child;
  core_->add(*awaited);
  return Handle(std::move(awaited));
}

void Loop::stop_on(std::initializer_list<int> signals) {
  for (const int number : signals) {
    core_->stopping.push_back(on_signal(number, [this] { stop(); }));
  }
}

void Loop::run(utime_t cycle) {
  while (!core_->stopped) runLoop(cycle);
  core_->stopped = false;
}

void Loop::stop() { core_->stopped = true; }

// Moves the waiting to the end before each pass, since sub-loops are added through the base class.
// This cannot be done inside a pass, where the base class adds before it removes.
void Loop::runLoop(utime_t timeout) noexcept {
  core_->begin_pass(timeout);
  removeEvent(core_.get());
  addEvent(core_.get());
  SuperLoop::runLoop(timeout);
  core_->end_pass();
}

const char* Loop::name() { return "service::Loop"; }

}  // namespace service
