// SPDX-License-Identifier: MIT
// Logging: categories label messages, loggers decide which ones pass, publishers write them.
//
//   util::logger* log = util::logger::getLogger("net");
//   log->enable(util::DEBUG);
//   log->setPublisher(new util::rolling_file_publisher("/var/log/net", 1 << 20, 4));
//   UTIL_LOG(log, util::INFO, "%d interfaces", count);
//
// Nothing here is locked: log from one thread.
#pragma once

#ifdef DEBUG
#error "the macro DEBUG hides util::DEBUG: build without -DDEBUG, or #undef it before util/logger.h"
#endif

#include "util/export.h"

#include <sys/types.h>

#include <bitset>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

namespace util {

// The label of a message, by which a logger decides whether it passes. Categories of the same name
// share one identity, whichever source file declares them.
//
// A registry holds the address of the first category of each name: declare them at namespace scope,
// where they live as long as the process.
class UTIL_EXPORT category {
 public:
  // A category with a chosen identity. Moves the counter to `id`, even backwards, unless the name
  // is already registered.
  category(uint64_t mask, unsigned int id, const char* name);

  // A module's own category: gets the next identity, or that of the category already registered
  // under the name, and the mask bit of that number. Aborts if the counter has become negative.
  category(std::string name);

  category(const category&) = default;
  category& operator=(const category&) = default;
  ~category() = default;

  unsigned int id() const { return _id; }
  uint64_t mask() const { return _mask; }
  std::string name() const { return _name; }
  const char* name_text() const noexcept { return _name.c_str(); }  // the same without a copy

  // A category that passes if both would pass; named "<this>|<other>", id 0, not registered.
  category operator&&(const category& other) const;

  bool equal_to(const category& other) const { return _id == other._id && _mask == other._mask; }

  // The first category registered under the name, or null.
  static category* forName(const std::string& name);
  static category* forName(const char* name);

  // The registered categories, by name.
  static std::vector<category*> categories();

 private:
  friend class file_publisher;  // these use the name without a copy
  friend class syslog_publisher;
  friend class logger;

  category(uint64_t mask, std::string& name);

  static int register_category(category* c, std::string& name);
  static void claim_category(category* c, unsigned int id, std::string& name);

  unsigned int _id;
  uint64_t _mask;
  std::string _name;
};

// A clash of category names. Not thrown by the library: a second category with the same name shares
// the identity of the first.
class UTIL_EXPORT duplicate_category : public std::exception {
 public:
  ~duplicate_category() override = default;
  const char* what() const noexcept override;
};

// The levels are cumulative: a logger enabled for one passes those before it as well.
static category WARNING(0x1, 0, "WARNING");
static category INFO(0x3, 1, "INFO");
static category DEBUG(0x7, 2, "DEBUG");
static category MEMORY("MEMORY");
static category TIMING("TIMING");

// Writes log entries somewhere:
//
//   2007-03-01T14:05:09 void net::Server::start()
//   INFO: 3 interfaces
//
// The time is local. Kept: the destructor is not virtual; loggers destroy their publishers
// completely all the same, see logger::setPublisher().
class UTIL_EXPORT publisher {
 public:
  // Writes one entry and returns its length in characters. `where` ends the first line, `format`
  // and `args` make the message. `c` is the message's own copy.
  virtual int publish(category& c, const char* where, const char* format, va_list args) = 0;

  // Writes out what is buffered.
  virtual void flush();
};

// Writes to a stream, which it owns: the destructor closes it. If the stream is null, entries are
// dropped.
class UTIL_EXPORT file_publisher : public publisher {
 public:
  explicit file_publisher(FILE* stream);
  file_publisher(const file_publisher&) = delete;
  file_publisher& operator=(const file_publisher&) = delete;

  int publish(category& c, const char* where, const char* format, va_list args) override;
  void flush() override;
  virtual ~file_publisher();

 protected:
  void close_file();  // leaves a null stream

  FILE* file;

 private:
  friend class logger;

  // The stream publisher that `p` is part of, or null.
  static file_publisher* from(publisher* p);
};

// Writes to standard error, which its destructor closes.
class UTIL_EXPORT console_publisher : public file_publisher {
 public:
  console_publisher();
};

// Sends each entry to the system log as two records at LOG_INFO, cut at 1023 characters each. The
// program's own openlog(), if any, applies.
class UTIL_EXPORT syslog_publisher : public publisher {
 public:
  int publish(category& c, const char* where, const char* format, va_list args) override;
};

// Appends entries to a file and moves it away once it has grown past a limit: <path>.0 is the
// newest old file, <path>.<count - 1> the oldest, which the next rotation replaces.
//
// Owns the stream and its buffer of 512 KiB: entries reach the disk on flush(), on rotation, when
// the buffer is full and on destruction. Flush before fork(): a child that exits writes its copy of
// the buffer too. While the file cannot be opened, entries are dropped (publish() returns 0) and
// each further entry tries again.
class UTIL_EXPORT rolling_file_publisher : public file_publisher {
 public:
  // `limit` in bytes; 0 or less never rotates. A `count` of 0 or 1 keeps no old file: the file is
  // emptied in place. An existing file is appended to, and its size counts.
  rolling_file_publisher(const char* path, off_t limit, size_t count);
  rolling_file_publisher(const rolling_file_publisher&) = delete;
  rolling_file_publisher& operator=(const rolling_file_publisher&) = delete;
  ~rolling_file_publisher() override;

  // The entry that crosses the limit still goes to the old file.
  int publish(category& c, const char* where, const char* format, va_list args) override;

 private:
  void open_log(const char* mode);
  void open_to_append();
  void rotate_logs();
  void shift_logs() const;

  std::string logname;
  const off_t maxsize;
  off_t logsize = 0;
  const size_t logcount;
  char* buffer;
};

// Decides which messages pass, hands them to its publisher and, unless setUseParentPublisher(false)
// was called, to those of its ancestors, and remembers the source position of the last logging
// call, passed or not (the checkpoint).
//
// There is one root logger; named loggers hang below it. All live as long as the process.
class UTIL_EXPORT logger {
 public:
  logger(const logger&) = delete;
  logger& operator=(const logger&) = delete;

  // Initially nothing is enabled, messages go to standard error and checkpointing is on.
  static logger* rootLogger();

  // The logger of that name directly below this one or, with getLogger(), below the root, where the
  // empty name is the root itself. A new logger starts with a copy of its parent's enabled
  // categories, which later changes to the parent do not affect, and without a publisher of its
  // own: it uses its parent's.
  logger* childLogger(const std::string& child);
  static logger* getLogger(const std::string& child);
  static logger* getLogger(const char* child);

  // Takes ownership of `p` and destroys the previous publisher; null leaves the logger without one.
  // Pass a pointer to the publisher's own class or to one with a virtual destructor: through a
  // plain publisher*, and so through an abstract class without one, only stream publishers and
  // classes without a destructor are destroyed completely.
  void setPublisher(publisher* p);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdelete-non-virtual-dtor"  // P is the publisher's very class
  template <class P>
  typename std::enable_if<std::has_virtual_destructor<P>::value ||
                          (std::is_destructible<P>::value && !std::is_abstract<P>::value)>::type
  setPublisher(P* p) {
    set_publisher(p, {[](void* whole) { delete static_cast<P*>(whole); }, p});
  }
#pragma GCC diagnostic pop

  void auto_flush(bool on) { autoFlush = on; }  // flush after each published message
  bool auto_flush() const { return autoFlush; }
  void flush();  // this logger's own publisher, if any; never an ancestor's

  bool useParentPublisher() const { return _useParentPublisher; }
  void setUseParentPublisher(bool use) { _useParentPublisher = use; }

  void enable(const category& c) { categories |= c.mask(); }
  void disable(const category& c) { categories &= ~c.mask(); }  // disabling INFO disables WARNING
  void clear_components() { categories.reset(); }

  // Kept: only the low 32 bits of the mask are tested, so a mask without any of them always passes.
  bool isLoggable(const category& c) const { return (c.mask() & ~enabled() & 0xFFFFFFFF) == 0; }

  void halt_checkpointing() { checkpointing_on = false; }
  void resume_checkpointing() { checkpointing_on = true; }
  std::string get_checkpoint() const { return checkpoint; }  // "<file>:<line>"
  // The same for signal handlers; valid until the next logging call.
  const char* checkpoint_text() const noexcept { return checkpoint.c_str(); }
  void set_checkpoint(const char* file, int line);  // even with checkpointing halted

  // Publishes the message if its category passes and sets the checkpoint. `where` is the signature
  // of the calling function, `file` the base name of its source file; `format` is printf's. A null
  // text counts as "(null)".
  __attribute__((format(printf, 6, 7))) void logp(category c, const char* where, const char* file,
                                                  int line, const char* format, ...);

  // logp() without a copy of the category, and so without an allocation. `position` is
  // "<file>:<line>", put together by the compiler.
  __attribute__((format(printf, 5, 6))) void log(const category& c, const char* where,
                                                 const char* position, const char* format, ...);

  // Ends each logging call, whether its message passed or not: the checkpoint becomes `position`
  // unless checkpointing is halted.
  void record_checkpoint(const char* position) {
    if (checkpointing_on) checkpoint = position;
  }

 private:
  // Destroys the object that a publisher is part of, wherever the publisher lies in it.
  struct Destroy {
    void operator()(publisher*) const { how(whole); }

    void (*how)(void*);
    void* whole;
  };

  logger(const std::string& own_name, logger* above);
  ~logger() = default;

  uint64_t enabled() const { return categories.to_ullong(); }
  void set_publisher(publisher* p, Destroy destroy);
  void publish(category& c, const char* where, const char* format, va_list args);

  std::bitset<64> categories;
  std::unique_ptr<publisher, Destroy> pub;
  std::string name;
  logger* parent;
  bool _useParentPublisher;
  bool amRoot;
  bool autoFlush = false;
  std::string checkpoint;
  bool checkpointing_on = true;
  logger* newest_child = nullptr;
  logger* const sibling;  // the next older child of the parent
};

}  // namespace util

// Logs from here: UTIL_LOG(to, cat, format, ...) with a logger*, a category and printf's format
// and arguments; these are evaluated only if the message passes.
#define UTIL_LOG(to, cat, ...) UTIL_LOG_AS(to, cat, __PRETTY_FUNCTION__, __VA_ARGS__)

// The same with a text of the caller's instead of the function's signature on the first line.
#define UTIL_LOG_AS(to, cat, where, ...)                                      \
  do {                                                                        \
    ::util::logger* const util_log_to = (to);                                 \
    const ::util::category& util_log_as = (cat);                              \
    if (util_log_to->isLoggable(util_log_as))                                 \
      util_log_to->log(util_log_as, (where), UTIL_LOG_POSITION, __VA_ARGS__); \
    else                                                                      \
      util_log_to->record_checkpoint(UTIL_LOG_POSITION);                      \
  } while (false)

// "<file>:<line>" of here.
#define UTIL_LOG_POSITION __FILE_NAME__ ":" UTIL_LOG_TEXT(__LINE__)
// The expansion of a macro as a string literal.
#define UTIL_LOG_TEXT(macro) UTIL_LOG_QUOTED(macro)
// The argument itself as a string literal.
#define UTIL_LOG_QUOTED(text) #text
