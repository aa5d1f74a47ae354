// SPDX-License-Identifier: MIT
#pragma once

#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

namespace util {

// The rest of the file up to its first NUL byte, where the XML parser's text ends, with room for
// `spare` more bytes. The caller asks ferror(). Inline, because the layer in ticpp/ is also built
// as a library of its own.
inline std::string read_text(FILE* file, size_t spare) {
  struct stat status = {};
  fstat(fileno(file), &status);
  const auto expected = static_cast<size_t>(std::min<off_t>(status.st_size, 1 << 24));
  std::string text(expected + spare + 1, '\0');  // the one byte more meets the end of the file
  size_t size = 0;
  for (bool more = true; more;) {
    if (size == text.size()) text.resize(2 * size);
    const size_t got = fread(&text[size], 1, text.size() - size, file);
    const size_t used = strnlen(&text[size], got);
    size += used;
    more = got > 0 && used == got;
  }
  text.resize(size);
  return text;
}

}  // namespace util
