// SPDX-License-Identifier: MIT
#include "util/logger.h"

#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cassert>
#include <charconv>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iterator>
#include <map>
#include <string_view>
#include <utility>

namespace util {
namespace {

using Registry = std::map<std::string, category*>;

Registry* gcategories = nullptr;  // never destroyed
int max_id = 0;                   // the last identity handed out or claimed

// Created with the library's own categories, so that their identities are the same in every
// program, whichever source file's categories are constructed first.
Registry& registry() {
  if (gcategories == nullptr) {
    gcategories = new Registry;
    new category(0x1, 0, "WARNING");
    new category(0x3, 1, "INFO");
    new category(0x7, 2, "DEBUG");
    for (const char* const name : {"MEMORY", "TIMING", "EVENT LOOP"}) new category(name);
  }
  return *gcategories;
}

// Kept: the shift is one of a 32-bit int, whose sign bit spreads: id 31 gives 0xFFFFFFFF80000000.
// Larger identities have no bit.
uint64_t mask_of(int id) {
  return id < 32 ? static_cast<uint64_t>(static_cast<int32_t>(UINT32_C(1) << id)) : 0;
}

const char* or_null(const char* text) { return text != nullptr ? text : "(null)"; }

}  // namespace

// ---- category ----

category::category(uint64_t mask, unsigned int id, const char* name)
    : _id(id), _mask(mask), _name(name) {
  claim_category(this, id, _name);
}

category::category(std::string name) : _id(0), _mask(0), _name(std::move(name)) {
  const int id = register_category(this, _name);
  // What assert() reports, under the name by which clients know this constructor.
  if (id < 0)
    __assert_fail("id >= 0", "logger.h", __LINE__, "util::category::category(std::string)");
  _id = static_cast<unsigned int>(id);
  _mask = mask_of(id);
}

category::category(uint64_t mask, std::string& name) : _id(0), _mask(mask), _name(name) {}

category category::operator&&(const category& other) const {
  std::string both = _name + "|" + other._name;
  return category(_mask | other._mask, both);
}

category* category::forName(const std::string& name) {
  if (gcategories == nullptr) return nullptr;
  const auto found = gcategories->find(name);
  return found != gcategories->end() ? found->second : nullptr;
}

category* category::forName(const char* name) { return forName(std::string(name)); }

std::vector<category*> category::categories() {
  std::vector<category*> all;
  if (gcategories == nullptr) return all;
  for (const auto& entry : *gcategories) all.push_back(entry.second);
  return all;
}

int category::register_category(category* c, std::string& name) {
  const auto [entry, is_new] = registry().emplace(name, c);
  if (!is_new) return static_cast<int>(entry->second->_id);
  // Wraps, so that the caller's assertion sees an exhausted counter.
  max_id = static_cast<int>(static_cast<unsigned int>(max_id) + 1);
  return max_id;
}

void category::claim_category(category* c, unsigned int id, std::string& name) {
  if (!registry().emplace(name, c).second) return;
  max_id = static_cast<int>(id);  // Kept: no maximum; a late claim moves the counter back.
}

const char* duplicate_category::what() const noexcept { return "duplicate category"; }

// ---- logger ----

logger::logger(const std::string& own_name, logger* above)
    : categories(above != nullptr ? above->categories : 0),
      name(own_name),
      parent(above),
      _useParentPublisher(above != nullptr),
      amRoot(above == nullptr) {
  checkpoint.reserve(64);  // A pass of the loop logs and has nobody to tell that memory ran out.
}

logger* logger::rootLogger() {
  static logger* root = nullptr;
  if (root == nullptr) {
    root = new logger("", nullptr);
    root->setPublisher(new console_publisher);
  }
  return root;
}

logger* logger::childLogger(const std::string& child) {
  if (amRoot && child.empty()) return this;
  static auto& named = *new std::map<std::pair<logger*, std::string>, logger*>;  // never destroyed
  logger*& found = named[{this, child}];
  if (found == nullptr) found = new logger(child, this);
  return found;
}

logger* logger::getLogger(const std::string& child) { return rootLogger()->childLogger(child); }

logger* logger::getLogger(const char* child) { return rootLogger()->childLogger(child); }

void logger::setPublisher(publisher* p) {
  if (auto* const stream = dynamic_cast<file_publisher*>(p)) return setPublisher(stream);
  // The memory of an unknown class can be released, its destructor cannot be found.
  set_publisher(p, {[](void* whole) { ::operator delete(whole); }, dynamic_cast<void*>(p)});
}

void logger::set_publisher(publisher* p, Destroy destroy) {
  if (p != pub.get()) pub = {p, destroy};
}

void logger::flush() {
  if (pub) pub->flush();
}

void logger::set_checkpoint(const char* file, int line) {
  file = or_null(file);
  char number[16];  // ":", the line
  char* const end = std::to_chars(number + 1, std::end(number), line).ptr;
  number[0] = ':';
  const size_t length = strlen(file);
  const auto digits = static_cast<size_t>(end - number);
  checkpoint.resize(length + digits);
  memcpy(checkpoint.data(), file, length);
  memcpy(checkpoint.data() + length, number, digits);
}

void logger::logp(category c, const char* where, const char* file, int line, const char* format,
                  ...) {
  va_list args;
  va_start(args, format);
  publish_passing(c, where, format, args);
  va_end(args);
  if (checkpointing_on) set_checkpoint(file, line);
}

void logger::log(const category& c, const char* where, const char* position, const char* format,
                 ...) {
  va_list args;
  va_start(args, format);
  publish_passing(const_cast<category&>(c), where, format, args);  // publishers only read
  va_end(args);
  drop(position);
}

void logger::publish_passing(category& c, const char* where, const char* format, va_list args) {
  if (!isLoggable(c)) return;
  publish(c, or_null(where), or_null(format), args);
  if (autoFlush) flush();
}

void logger::publish(category& c, const char* where, const char* format, va_list args) {
  for (logger* at = this; at != nullptr; at = at->_useParentPublisher ? at->parent : nullptr) {
    if (!at->pub) continue;
    va_list again;
    va_copy(again, args);
    at->pub->publish(c, where, format, again);
    va_end(again);
  }
}

// ---- publishers ----

namespace {

constexpr char kHeader[] = "%s %s\n%s: ";  // time, where, category
constexpr size_t kEntrySize = 1024;        // longer entries are written piece by piece
constexpr size_t kBufferSize = 0x80000;
constexpr int kMostShifted = 1000;  // old files that a rotation moves without looking first
constexpr size_t kTimeSize = 256;

// What the C library tells of its time zone.
struct Zone {
  bool operator==(const Zone& other) const {
    return names[0] == other.names[0] && names[1] == other.names[1] && west == other.west &&
           has_summer == other.has_summer;
  }

  const char* names[2] = {tzname[0], tzname[1]};
  long west = timezone;
  int has_summer = daylight;
};

const char* local_time(time_t second, char (&to)[kTimeSize]) {
  struct tm local = {};
  localtime_r(&second, &local);
  if (strftime(to, sizeof to, "%FT%T", &local) == 0) to[0] = '\0';
  return to;
}

char* put(char* to, std::string_view text) {
  memcpy(to, text.data(), text.size());
  return to + text.size();
}

// A whole entry, which one call then writes. Returns its size, or 0 where it has no room in `to` or
// its message cannot be formatted.
size_t compose(char (&to)[kEntrySize], std::string_view time, std::string_view where,
               std::string_view name, const char* format, va_list args) {
  if (time.size() + where.size() + name.size() + strlen(" \n: ") >= kEntrySize) return 0;
  char* at = put(to, time);
  *at++ = ' ';
  at = put(at, where);
  *at++ = '\n';
  at = put(at, name);
  *at++ = ':';
  *at++ = ' ';
  const auto room = static_cast<size_t>(std::end(to) - at);
  const int message = vsnprintf(at, room, format, args);
  if (message < 0 || static_cast<size_t>(message) >= room) return 0;
  at += message;
  *at++ = '\n';  // in the place of the end
  return static_cast<size_t>(at - to);
}

}  // namespace

// The local time as "2007-03-01T14:05:09", formatted once a second, since that is most of what an
// entry costs. Another zone shows at once, unless both have the same names and offset.
struct file_publisher::Stamp {
  const char* now() {
    const time_t second = time(nullptr);
    const Zone present;  // Read first: strftime() may find another one, which the next entry sees.
    if (text[0] != '\0' && second == formatted && present == zone) return text;
    formatted = second;
    zone = present;
    return local_time(second, text);
  }

  time_t formatted = 0;
  Zone zone;
  char text[kTimeSize] = "";  // empty: not formatted
};

void publisher::flush() {}

file_publisher::file_publisher(FILE* stream) : file(stream), stamp(std::make_unique<Stamp>()) {}

file_publisher::~file_publisher() { close_file(); }

int file_publisher::publish(category& c, const char* where, const char* format, va_list args) {
  if (file == nullptr) return 0;
  const char* const time = stamp->now();
  const char* const name = c._name.c_str();
  char entry[kEntrySize];
  va_list again;
  va_copy(again, args);
  const size_t size = compose(entry, time, where, name, format, again);
  va_end(again);
  if (size > 0) return fwrite(entry, 1, size, file) == size ? static_cast<int>(size) : -1;
  const int header = fprintf(file, kHeader, time, where, name);
  const int message = vfprintf(file, format, args);
  fputc('\n', file);
  return header + message + 1;
}

void file_publisher::flush() {
  if (file != nullptr) fflush(file);
}

void file_publisher::close_file() {
  if (file != nullptr) fclose(file);
  file = nullptr;
}

// Kept: standard error is owned like any stream, so that destroying the publisher closes it.
console_publisher::console_publisher() : file_publisher(stderr) {}

int syslog_publisher::publish(category& c, const char* where, const char* format, va_list args) {
  char buffer[1024];
  char now[kTimeSize];
  const int header = snprintf(buffer, sizeof buffer, kHeader, local_time(time(nullptr), now), where,
                              c._name.c_str());
  syslog(LOG_INFO, "%s", buffer);  // Kept: LOG_INFO whatever the category.
  const int message = vsnprintf(buffer, sizeof buffer, format, args);
  syslog(LOG_INFO, "%s", buffer);
  return header + message;
}

rolling_file_publisher::rolling_file_publisher(const char* path, off_t limit, size_t count)
    : file_publisher(nullptr),
      logname(path),
      maxsize(limit),
      logcount(count),
      buffer(static_cast<char*>(malloc(kBufferSize))) {
  open_to_append();
}

// Closed before its buffer goes: closing writes what is left.
rolling_file_publisher::~rolling_file_publisher() {
  close_file();
  free(buffer);
}

int rolling_file_publisher::publish(category& c, const char* where, const char* format,
                                    va_list args) {
  if (file == nullptr) open_to_append();
  const int written = file_publisher::publish(c, where, format, args);
  logsize += written;
  if (maxsize > 0 && logsize > maxsize) rotate_logs();
  return written;
}

void rolling_file_publisher::open_log(const char* mode) {
  file = fopen(logname.c_str(), mode);
  if (file != nullptr) setvbuf(file, buffer, _IOFBF, kBufferSize);
  logsize = 0;
}

void rolling_file_publisher::open_to_append() {
  open_log("a");
  struct stat present = {};
  if (file != nullptr && stat(logname.c_str(), &present) == 0) logsize = present.st_size;
}

void rolling_file_publisher::rotate_logs() {
  if (logcount > 1) {
    fprintf(file, "rotating log file\n");
    fflush(file);
    close_file();
    shift_logs();
  } else {
    close_file();  // Kept: neither notice nor old file; the file is emptied in place.
  }
  open_log("w");  // Kept: empties the file even where it could not be renamed.
}

// Moves each old file to the next number, from the oldest down, and the log itself to number 0.
void rolling_file_publisher::shift_logs() const {
  // On the stack: a rotation within a pass of the loop cannot be told that memory ran out.
  char from[PATH_MAX + 12];  // the name of a file that was open, ".", a number and the end
  char to[sizeof from];
  const auto numbered = [this](char(&text)[sizeof from], int number) {
    snprintf(text, sizeof text, "%s.%d", logname.c_str(), number);
    return text;
  };
  const int oldest = static_cast<int>(std::min<size_t>(logcount - 1, INT_MAX));
  unlink(numbered(to, oldest));
  int first = oldest;
  if (oldest > kMostShifted) {  // A name without a file costs time too: start at the first gap.
    first = 0;
    struct stat found = {};
    while (first < oldest && stat(numbered(to, first), &found) == 0) ++first;
  }
  for (int k = first; k > 0; --k) rename(numbered(from, k - 1), numbered(to, k));
  rename(logname.c_str(), numbered(to, 0));
}

}  // namespace util
