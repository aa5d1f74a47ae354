// SPDX-License-Identifier: MIT
#include "util/logger.h"

#include <charconv>
#include <iterator>
#include <utility>

namespace util {
namespace {

// Kept from message to message, so that publishing needs no memory; null while a message has it.
category* spare = nullptr;

// A message's own category, so that nobody else sees what a publisher does to it. If a publisher
// logs a message while it publishes another one, there is no spare.
std::unique_ptr<category> copy_of(const category& c) {
  std::unique_ptr<category> own(std::exchange(spare, nullptr));
  if (own == nullptr) return std::make_unique<category>(c);
  *own = c;
  return own;
}

const char* or_null(const char* text) { return text != nullptr ? text : "(null)"; }

}  // namespace

logger::logger(const std::string& own_name, logger* above)
    : categories(above != nullptr ? above->categories : 0),  // Kept: as of now, once.
      name(own_name),
      parent(above),
      _useParentPublisher(above != nullptr),
      amRoot(above == nullptr),
      sibling(above != nullptr ? above->newest_child : nullptr) {
  // A pass of the loop logs, and cannot report that memory ran out.
  checkpoint.reserve(64);
  if (spare == nullptr) {
    std::string room(64, ' ');
    spare = new category(0, room);
  }
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
  for (logger* one = newest_child; one != nullptr; one = one->sibling) {
    if (one->name == child) return one;
  }
  return newest_child = new logger(child, this);
}

logger* logger::getLogger(const std::string& child) { return rootLogger()->childLogger(child); }

logger* logger::getLogger(const char* child) { return rootLogger()->childLogger(child); }

void logger::setPublisher(publisher* p) {
  if (file_publisher* const stream = file_publisher::from(p)) return setPublisher(stream);
  // The memory of an unknown class can be released, its destructor cannot be found.
  set_publisher(p, {[](void* whole) { ::operator delete(whole); }, dynamic_cast<void*>(p)});
}

void logger::set_publisher(publisher* p, Destroy destroy) {
  if (p != pub.get()) pub = {p, destroy};
}

void logger::flush() {
  if (pub) pub->flush();  // Kept: its own only, though its messages reach its ancestors' too.
}

void logger::set_checkpoint(const char* file, int line) {
  checkpoint = or_null(file);
  checkpoint += ':';
  char digits[16];
  checkpoint.append(digits, std::to_chars(digits, std::end(digits), line).ptr);
}

void logger::logp(category c, const char* where, const char* file, int line, const char* format,
                  ...) {
  if (isLoggable(c)) {
    va_list args;
    va_start(args, format);
    publish(c, where, format, args);
    va_end(args);
    if (autoFlush) flush();
  }
  if (checkpointing_on) set_checkpoint(file, line);
}

void logger::log(const category& c, const char* where, const char* position, const char* format,
                 ...) {
  if (isLoggable(c)) {
    std::unique_ptr<category> own = copy_of(c);
    va_list args;
    va_start(args, format);
    publish(*own, where, format, args);
    va_end(args);
    if (autoFlush) flush();
    delete std::exchange(spare, own.release());
  }
  record_checkpoint(position);
}

void logger::publish(category& c, const char* where, const char* format, va_list args) {
  for (logger* at = this; at != nullptr; at = at->_useParentPublisher ? at->parent : nullptr) {
    if (!at->pub) continue;
    va_list again;
    va_copy(again, args);
    at->pub->publish(c, or_null(where), or_null(format), again);
    va_end(again);
  }
}

}  // namespace util
