// SPDX-License-Identifier: MIT
#include "service/Loop.h"

#include "service/internal/Descriptor.h"
#include "service/internal/SignalInbox.h"
#include "service/internal/TimerQueue.h"
#include "service/internal/concat.h"
#include "util/logger.h"

#include <sys/wait.h>

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <climits>
#include <cstring>
#include <ctime>
#include <forward_list>
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

  Registration() = default;
  Registration(const Registration&) = delete;
  Registration& operator=(const Registration&) = delete;
  virtual ~Registration() = default;

  Core* core() const { return core_; }  // null unless it may be called

  void join(Core& core) { core_ = &core; }
  void leave() noexcept;
  void end() noexcept;     // leaves and destroys what the callback captured
  void disown() noexcept;  // leaves and is destroyed, once its callback has returned

  void run(int64_t argument);  // calls back
  void run_once(int64_t argument);

 private:
  virtual void call(int64_t argument) = 0;
  virtual void forget() noexcept = 0;  // destroys what the callback captured
  virtual void remove() noexcept = 0;  // from the tables of the loop

  Core* core_ = nullptr;
  bool running_ = false;
  bool disowned_ = false;
};

namespace {

struct Watch : Registration {
  Watch(int watched, uint32_t wanted) : descriptor(watched), events(wanted) {}
  void remove() noexcept override;

  const int descriptor;
  uint32_t events;
  uint32_t number = 0;  // tells its events from those of an earlier watch of the descriptor
};

struct Timer : Timed, Registration {
  Timer(int64_t at, int64_t every) : Timed{at}, interval(every) {}
  void remove() noexcept override;

  const int64_t interval;  // 0: once
};

// What a signal announces.
struct Announced : Registration {
  explicit Announced(int announced) : number(announced) {}

  const int number;  // of the signal or the process
  int status = 0;
  bool due = false;
};

struct Signal : Announced {
  using Announced::Announced;
  void remove() noexcept override;
};

struct Child : Announced {
  using Announced::Announced;
  void remove() noexcept override;
};

template <class Kind, class... Arguments>
class Calling final : public Kind {
 public:
  using Callback = std::function<void(Arguments...)>;

  template <class... Parts>
  explicit Calling(Callback& callback, Parts... parts)
      : Kind(parts...), callback_(std::move(callback)) {}

 private:
  void call([[maybe_unused]] int64_t argument) override {
    callback_(static_cast<Arguments>(argument)...);
  }
  // What was captured may own the handle of this.
  void forget() noexcept override { const Callback dropped = std::move(callback_); }

  Callback callback_;
};

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

  template <class Kind, class... Arguments, class... Parts>
  Handle add(std::function<void(Arguments...)>& callback, Parts... parts) {
    if (!callback) refuse_empty();
    auto* const made = new Calling<Kind, Arguments...>(callback, parts...);
    Handle handle(made);
    insert(*made);
    made->join(*this);
    return handle;
  }
  void insert(Watch& watch);
  void insert(Timer& timer) { timers_.add(timer); }
  void insert(Signal& signal);
  void insert(Child& child);
  void change(Watch& watch, uint32_t events);

  void remove(Watch& watch) noexcept;
  void remove(Timer& timer) noexcept { timers_.remove(timer); }
  void remove(Signal& signal) noexcept;
  void remove(Child& child) noexcept;

  bool stopped = false;
  std::forward_list<Handle> stopping;

 private:
  Descriptor new_epoll() const;
  void replace_epoll();
  void take_over();
  void repair();
  bool repaired() noexcept;
  bool forked() const { return forks_ != forks(); }
  Watch* watch_of(const epoll_event& event) const;
  void want(int signal);

  void serve(int64_t end);
  bool fetch(int64_t end);
  int patience(int64_t at, int64_t end) const;
  void dispatch(const epoll_event& event);
  void run_timers();
  void fire(Timer& timer, int64_t at);
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
  std::list<Announced*> signals_;
  std::list<Announced*> children_;
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

void Registration::run(int64_t argument) {
  running_ = true;
  call(argument);
  running_ = false;
  if (disowned_) {
    delete this;
  } else if (core_ == nullptr) {
    forget();
  }
}

void Registration::run_once(int64_t argument) {
  leave();
  run(argument);
}

void Registration::leave() noexcept {
  if (core_ != nullptr) remove();
  core_ = nullptr;
}

void Registration::end() noexcept {
  leave();
  if (!running_) forget();
}

void Registration::disown() noexcept {
  leave();
  disowned_ = true;
  if (!running_) delete this;
}

namespace {

void Watch::remove() noexcept { core()->remove(*this); }
void Timer::remove() noexcept { core()->remove(*this); }
void Signal::remove() noexcept { core()->remove(*this); }
void Child::remove() noexcept { core()->remove(*this); }

// A callback may change the table, so the next one is looked up after each call.
Announced* take_due(const std::list<Announced*>& table) {
  for (Announced* const one : table) {
    if (std::exchange(one->due, false)) return one;
  }
  return nullptr;
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

// "signal 9 cannot be handled: Invalid argument"
[[noreturn]] void refuse(const char* what, int number, const char* use, int error,
                         const char* why = nullptr) {
  const util::system_exception usual(error);
  throw RegistrationError(error, concat({what, decimal(number), " cannot be ", use, ": ",
                                         why != nullptr ? why : usual.what()}));
}

[[noreturn]] void refuse(const Watch& watch, int error) {
  const char* const why = error == EPERM    ? "regular files and folders are always ready"
                          : error == EEXIST ? "it is watched already"
                                            : nullptr;
  refuse("descriptor ", watch.descriptor, "watched", error, why);
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

void Loop::Core::insert(Watch& watch) {
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

void Loop::Core::want(int signal) {
  try {
    inbox_.want(signal);
  } catch (const util::system_exception& failure) {
    refuse("signal ", signal, "handled", failure.error_number());
  }
}

void Loop::Core::insert(Signal& signal) {
  repair();
  std::list<Announced*> entry(1, &signal);
  want(signal.number);
  signals_.splice(signals_.end(), entry);
}

void Loop::Core::remove(Signal& signal) noexcept {
  signals_.remove(&signal);
  inbox_.drop(signal.number);
}

void Loop::Core::insert(Child& child) {
  repair();
  for (const Announced* const other : children_) {
    if (other->number == child.number) {
      refuse("process ", child.number, "awaited", EEXIST, "it is awaited already");
    }
  }
  siginfo_t state = {};
  if (waitid(P_PID, static_cast<id_t>(child.number), &state, WEXITED | WNOHANG | WNOWAIT) < 0) {
    refuse("process ", child.number, "awaited", errno);
  }
  std::list<Announced*> entry(1, &child);
  if (children_.empty()) want(SIGCHLD);
  children_.splice(children_.end(), entry);
  look_for_children_ = true;
}

void Loop::Core::remove(Child& child) noexcept {
  children_.remove(&child);
  if (children_.empty()) inbox_.drop(SIGCHLD);
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
  for (const Announced* const signal : signals_) inbox_.want(signal->number);
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
    watch->run(event.events);
  }
}

// Calls the timers that are due now; one that is added meanwhile has its turn later.
void Loop::Core::run_timers() {
  if (timers_.empty()) return;
  const int64_t at = now();
  const uint64_t added = timers_.next_order();
  while (!timers_.empty() && timers_.next_due() <= at && timers_.front()->order < added) {
    fire(static_cast<Timer&>(*timers_.front()), at);
  }
}

void Loop::Core::fire(Timer& timer, int64_t at) {
  if (timer.interval == 0) return timer.run_once(0);
  const int64_t missed = (at - timer.due) / timer.interval;
  timer.due += (missed + 1) * timer.interval;
  timers_.postpone_front();
  timer.run(missed);
}

void Loop::Core::run_signals() {
  inbox_.clear();
  bool came[NSIG] = {};
  for (int number = 1; number < NSIG; ++number) came[number] = inbox_.take(number);
  look_for_children_ |= came[SIGCHLD];
  for (Announced* const signal : signals_) signal->due = came[signal->number];
  while (Announced* const signal = take_due(signals_)) signal->run(0);
}

void Loop::Core::run_children() {
  if (!std::exchange(look_for_children_, false)) return;
  for (Announced* const child : children_) {
    const pid_t ended = waitpid(child->number, &child->status, WNOHANG);
    if (ended < 0) child->status = -1;
    child->due = ended == child->number || (ended < 0 && errno == ECHILD);
  }
  while (Announced* const child = take_due(children_)) child->run_once(child->status);
}

// ---- Handle ----

Handle::Handle() noexcept = default;

Handle::Handle(Registration* registration) noexcept : registration_(registration) {}

Handle::Handle(Handle&& from) noexcept
    : registration_(std::exchange(from.registration_, nullptr)) {}

Handle& Handle::operator=(Handle&& from) noexcept {
  Handle taken(std::move(from));
  std::swap(registration_, taken.registration_);
  return *this;
}

Handle::~Handle() { cancel(); }

void Handle::cancel() noexcept {
  if (Registration* const registration = std::exchange(registration_, nullptr))
    registration->disown();
}

void Handle::change(uint32_t events) {
  auto* const watch = dynamic_cast<Watch*>(registration_);
  if (watch == nullptr || watch->core() == nullptr) {
    throw std::logic_error("service::Handle::change: no descriptor is watched");
  }
  watch->core()->change(*watch, events);
}

Handle::operator bool() const noexcept {
  return registration_ != nullptr && registration_->core() != nullptr;
}

// ---- Loop ----

Loop::Loop() : Loop(util::logger::rootLogger()) {}

Loop::Loop(util::logger* log) : SuperLoop(log), core_(std::make_unique<Core>(log)) {}

Loop::~Loop() = default;

Handle Loop::watch(int descriptor, uint32_t readiness, std::function<void(uint32_t)> callback) {
  return core_->add<Watch>(callback, descriptor, readiness);
}

Handle Loop::after(utime_t delay, std::function<void()> callback) {
  return core_->add<Timer>(callback, now() + duration(delay), int64_t{0});
}

Handle Loop::every(utime_t interval, std::function<void(uint64_t missed)> callback) {
  if (interval == 0) throw std::invalid_argument("service::Loop::every: an interval of 0");
  return core_->add<Timer>(callback, now() + duration(interval), duration(interval));
}

Handle Loop::on_signal(int number, std::function<void()> callback) {
  return core_->add<Signal>(callback, number);
}

Handle Loop::on_exit(pid_t child, std::function<void(int status)> callback) {
  return core_->add<Child>(callback, child);
}

void Loop::stop_on(std::initializer_list<int> signals) {
  for (const int number : signals) {
    core_->stopping.push_front(on_signal(number, [this] { stop(); }));
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
