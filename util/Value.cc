// SPDX-License-Identifier: MIT
#include "util/Value.h"

#include <utility>

namespace util {
namespace {

// Most texts of most values are empty on both sides.
template <class Text>
void take(Text& to, Text& from) {
  if (to.empty() && from.empty()) return;
  to.swap(from);
  from.clear();
}

}  // namespace

// Kept: both constructors take only the payload that the kind names, unlike assignment.
Value::Value(const Value& from) : type(from.type) { copy_payload(type, from); }

Value::Value(Value&& from) noexcept : type(from.type) {
  switch (type) {
    case STRING: _string.swap(from._string); break;
    case BYTE_STRING: _bytes.swap(from._bytes); break;
    case STRUCT: _struct.swap(from._struct); break;
    case ARRAY: _array.swap(from._array); break;
    default: copy_payload(type, from);
  }
}

void Value::copy_payload(Type kind, const Value& from) {
  switch (kind) {
    case INTEGER: value._int = from.value._int; break;
    case BOOLEAN: value._bool = from.value._bool; break;
    case DOUBLE: value._double = from.value._double; break;
    case STRING: _string = from._string; break;
    case DATE_TIME: value._date = from.value._date; break;
    case BYTE_STRING: _bytes = from._bytes; break;
    case STRUCT: value_struct(from._struct).swap(_struct); break;
    case ARRAY: value_array(from._array).swap(_array); break;
    case VOID: break;
  }
}

Value& Value::operator=(const Value& from) {
  if (this == &from) return *this;
  Value copy;
  copy.type = from.type;
  copy.value = from.value;
  // Kept: all payloads whatever the kind, unlike the copy constructor.
  for (const Type kind : {STRING, BYTE_STRING, STRUCT, ARRAY}) copy.copy_payload(kind, from);
  return *this = std::move(copy);
}

Value& Value::operator=(Value&& from) noexcept {
  if (this == &from) return *this;
  value_struct entries;  // The old entries are destroyed last: `from` may be a part of them.
  value_array elements;
  entries.swap(_struct);
  elements.swap(_array);
  type = from.type;
  value = from.value;
  take(_string, from._string);
  take(_bytes, from._bytes);
  _struct.swap(from._struct);
  _array.swap(from._array);
  return *this;
}

}  // namespace util
