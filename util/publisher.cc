// SPDX-License-Identifier: MIT
#include "util/logger.h"

#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <forward_list>
#include <iterator>
#include <string_view>
#include <tuple>

namespace util {
namespace {

constexpr char kHeader[] = "%s %s\n%s: ";  // time, where, category
constexpr size_t kEntrySize = 1024;        // longer entries are written piece by piece
constexpr size_t kBufferSize = 0x80000;
constexpr int kMostShifted = 1000;  // old files that a rotation moves without looking first
constexpr size_t kTimeSize = 256;

// What the C library reports of its time zone: its names, its offset, whether it has summer time.
using Zone = std::tuple<const char*, const char*, long, int>;

// The local time as "2007-03-01T14:05:09", formatted once a second for all publishers, since that
// is most of what an entry costs. Another zone shows at once, unless both have the same names and
// offset.
const char* local_time() {
  static struct {
    time_t second;
    Zone zone;
    char text[kTimeSize];  // empty: not formatted
  } last;
  const time_t second = time(nullptr);
  // strftime() may find another one, which the next entry sees.
  const Zone zone(tzname[0], tzname[1], timezone, daylight);
  if (last.text[0] != '\0' && second == last.second && zone == last.zone) return last.text;
  last.second = second;
  last.zone = zone;
  struct tm local = {};
  localtime_r(&second, &local);
  if (strftime(last.text, sizeof last.text, "%FT%T", &local) == 0) last.text[0] = '\0';
  return last.text;
}

// The stream publishers that exist. In a program without run-time type information nothing else
// shows what a publisher* is.
std::forward_list<file_publisher*>& streams() {
  static auto& all = *new std::forward_list<file_publisher*>;  // never destroyed
  return all;
}

char* put(char* to, std::string_view text) {
  memcpy(to, text.data(), text.size());
  return to + text.size();
}

// A whole entry, which one call then writes. Returns its size, or 0 if it does not fit into `to` or
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
  *at++ = '\n';  // replaces the NUL
  return static_cast<size_t>(at - to);
}

}  // namespace

void publisher::flush() {}

file_publisher::file_publisher(FILE* stream) : file(stream) { streams().push_front(this); }

file_publisher::~file_publisher() {
  streams().remove(this);
  close_file();
}

file_publisher* file_publisher::from(publisher* p) {
  for (file_publisher* const one : streams()) {
    if (one == p) return one;
  }
  return nullptr;
}

int file_publisher::publish(category& c, const char* where, const char* format, va_list args) {
  if (file == nullptr) return 0;
  const char* const time = local_time();
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
  const int header = snprintf(buffer, sizeof buffer, kHeader, local_time(), where, c._name.c_str());
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

// Closed before its buffer is freed: closing writes what is left.
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
  open_log("w");  // Kept: empties the file even if it could not be renamed.
}

// Moves each old file to the next number, from the oldest down, and the log itself to number 0.
void rolling_file_publisher::shift_logs() const {
  // On the stack: a rotation within a pass of the loop cannot report that memory ran out.
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
