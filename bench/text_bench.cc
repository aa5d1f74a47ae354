// SPDX-License-Identifier: MIT
#include "bench/bench.h"
#include "util/base64.h"
#include "util/escape.h"
#include "util/strnatcmp.h"

extern "C" {
#include <b64/cdecode.h>
#include <b64/cencode.h>
}
#include <glib.h>
#include <string.h>
#include <unicode/ucol.h>
#include <unicode/ustring.h>

#include <algorithm>
#include <memory>
#include <random>

#include <openssl/evp.h>

namespace {

using util::byte_string;

int signed_size(size_t size) { return static_cast<int>(size); }

byte_string some_bytes(size_t size) {
  std::mt19937 random(1);
  byte_string bytes;
  for (size_t i = 0; i < size; ++i) bytes += static_cast<unsigned char>(random() & 0xFF);
  return bytes;
}

struct FreeByGlib {
  void operator()(void* block) const { g_free(block); }
};
template <class T>
using ByGlib = std::unique_ptr<T, FreeByGlib>;

// ---- base64: into a text, or bytes, that keep their room from one unit to the next ----

// Of OpenSSL's lines when it wraps. GLib and libb64 break them after 76 and 72 characters.
constexpr int kWidth = 64;

void text_ours(const byte_string& bytes, std::string& text) {
  text.clear();
  util::b64_encode(bytes, text, 0);
}

void lines_ours(const byte_string& bytes, std::string& text) {
  text.clear();
  util::b64_encode(bytes, text, kWidth);
}

void bytes_ours(const std::string& text, byte_string& bytes) {
  bytes.clear();
  util::b64_decode(text, bytes);
}

void text_openssl(const byte_string& bytes, std::string& text) {
  text.resize(4 * (bytes.size() + 2) / 3 + 4);
  auto* const to = reinterpret_cast<unsigned char*>(text.data());
  text.resize(static_cast<size_t>(EVP_EncodeBlock(to, bytes.data(), signed_size(bytes.size()))));
}

// It counts the padding's bytes too.
void bytes_openssl(const std::string& text, byte_string& bytes) {
  bytes.resize(text.size() / 4 * 3 + 3);
  const auto* const from = reinterpret_cast<const unsigned char*>(text.data());
  const int size = EVP_DecodeBlock(bytes.data(), from, signed_size(text.size()));
  const auto padding = std::count(text.end() - 2, text.end(), '=');
  bytes.resize(static_cast<size_t>(size - padding));
}

using Context = std::unique_ptr<EVP_ENCODE_CTX, void (*)(EVP_ENCODE_CTX*)>;

Context new_context() { return {EVP_ENCODE_CTX_new(), EVP_ENCODE_CTX_free}; }

void lines_openssl(const byte_string& bytes, std::string& text) {
  const Context context = new_context();
  text.resize(bytes.size() / 48 * 65 + 80);
  auto* const to = reinterpret_cast<unsigned char*>(text.data());
  int size = 0;
  int rest = 0;
  EVP_EncodeInit(context.get());
  EVP_EncodeUpdate(context.get(), to, &size, bytes.data(), signed_size(bytes.size()));
  EVP_EncodeFinal(context.get(), to + size, &rest);
  text.resize(static_cast<size_t>(size + rest));
}

void bytes_of_lines_openssl(const std::string& text, byte_string& bytes) {
  const Context context = new_context();
  bytes.resize(text.size() / 4 * 3 + 80);
  const auto* const from = reinterpret_cast<const unsigned char*>(text.data());
  int size = 0;
  int rest = 0;
  EVP_DecodeInit(context.get());
  EVP_DecodeUpdate(context.get(), bytes.data(), &size, from, signed_size(text.size()));
  EVP_DecodeFinal(context.get(), bytes.data() + size, &rest);
  bytes.resize(static_cast<size_t>(size + rest));
}

void text_glib(const byte_string& bytes, std::string& text) {
  text.resize((bytes.size() / 3 + 1) * 4 + 4);
  gint state = 0;
  gint save = 0;
  gsize size = g_base64_encode_step(bytes.data(), bytes.size(), FALSE, text.data(), &state, &save);
  size += g_base64_encode_close(FALSE, text.data() + size, &state, &save);
  text.resize(size);
}

void lines_glib(const byte_string& bytes, std::string& text) {
  text.resize((bytes.size() / 3 + 1) * 4 + 4 + bytes.size() / 3 * 4 / 72 + 1);
  gint state = 0;
  gint save = 0;
  gsize size = g_base64_encode_step(bytes.data(), bytes.size(), TRUE, text.data(), &state, &save);
  size += g_base64_encode_close(TRUE, text.data() + size, &state, &save);
  text.resize(size);
}

void bytes_glib(const std::string& text, byte_string& bytes) {
  bytes.resize(text.size() / 4 * 3 + 3);
  gint state = 0;
  guint save = 0;
  bytes.resize(g_base64_decode_step(text.data(), text.size(), bytes.data(), &state, &save));
}

void lines_libb64(const byte_string& bytes, std::string& text) {
  text.resize(bytes.size() * 2 + 8);
  base64_encodestate state;
  base64_init_encodestate(&state);
  int size = base64_encode_block(reinterpret_cast<const char*>(bytes.data()),
                                 signed_size(bytes.size()), text.data(), &state);
  size += base64_encode_blockend(text.data() + size, &state);
  text.resize(static_cast<size_t>(size));
}

void bytes_libb64(const std::string& text, byte_string& bytes) {
  bytes.resize(text.size());
  base64_decodestate state;
  base64_init_decodestate(&state);
  const int size = base64_decode_block(text.data(), signed_size(text.size()),
                                       reinterpret_cast<char*>(bytes.data()), &state);
  bytes.resize(static_cast<size_t>(size));
}

template <class From, class To>
To coded(const From& from, void (*code)(const From&, To&)) {
  To to;
  code(from, to);
  return to;
}

template <class From, class To>
void add_code(const std::string& work, const std::string& who, const From& from,
              void (*code)(const From&, To&)) {
  bench::add(work, who, [=] {
    return [=, to = To()]() mutable {
      code(from, to);
      bench::keep(to);
    };
  });
}

void add_base64(const std::string& label, size_t size) {
  const byte_string bytes = some_bytes(size);
  const std::string text = coded(bytes, text_ours);
  const std::string lines = coded(bytes, lines_ours);
  for (const auto encode : {text_openssl, text_glib})
    bench::require(coded(bytes, encode) == text, "base64 text");
  for (const auto decode : {bytes_ours, bytes_openssl, bytes_glib, bytes_libb64})
    bench::require(coded(text, decode) == bytes, "base64 bytes");
  for (const auto decode : {bytes_ours, bytes_of_lines_openssl, bytes_glib, bytes_libb64})
    bench::require(coded(lines, decode) == bytes, "bytes of base64 lines");

  const std::string encode = "base64, " + label;
  add_code(encode, "ours", bytes, text_ours);
  add_code(encode, "OpenSSL", bytes, text_openssl);
  add_code(encode, "GLib", bytes, text_glib);

  const std::string wrap = "base64 wrapped, " + label;
  add_code(wrap, "ours", bytes, lines_ours);
  add_code(wrap, "OpenSSL", bytes, lines_openssl);
  add_code(wrap, "GLib", bytes, lines_glib);
  add_code(wrap, "libb64", bytes, lines_libb64);

  const std::string decode = "base64 read, " + label;
  add_code(decode, "ours", text, bytes_ours);
  add_code(decode, "OpenSSL", text, bytes_openssl);
  add_code(decode, "GLib", text, bytes_glib);
  add_code(decode, "libb64", text, bytes_libb64);

  const std::string unwrap = "base64 wrapped read, " + label;
  add_code(unwrap, "ours", lines, bytes_ours);
  add_code(unwrap, "OpenSSL", lines, bytes_of_lines_openssl);
  add_code(unwrap, "GLib", lines, bytes_glib);
  add_code(unwrap, "libb64", lines, bytes_libb64);
}

// ---- sorting file names ----

constexpr unsigned kNames = 100000;

using Names = std::vector<std::string>;

Names shuffled(Names names) {
  std::shuffle(names.begin(), names.end(), std::mt19937(1));
  return names;
}

template <class Name>
Names names_of(Name name) {
  Names names;
  for (unsigned i = 0; i < kNames; ++i) names.push_back(name(i));
  return shuffled(names);
}

std::string number(unsigned n, size_t digits) {
  std::string text = std::to_string(n);
  return text.insert(0, std::max(digits, text.size()) - text.size(), '0');
}

// What a camera calls its pictures.
std::string picture(unsigned i) { return "IMG_" + number(i, 4) + ".JPG"; }

// What a recorder calls the episodes of its series.
std::string episode(unsigned i) {
  static const char* const series[] = {"The Long Way Home", "Harbour Street", "Northern Lights"};
  return std::string(series[i % 3]) + " - Season " + std::to_string(i / 3000 % 40 + 1) +
         " Episode " + std::to_string(i / 3 % 1000 + 1) + ".mkv";
}

// What is in a music folder, with the folders.
std::string track(unsigned i) {
  return "Music/Artist " + std::to_string(i / 200 % 500) + "/Album " +
         std::to_string(i / 20 % 10 + 1990) + "/" + number(i % 20 + 1, 2) + " Track " +
         std::to_string(i) + ".flac";
}

// Documents that have little in common.
std::string document(unsigned i) {
  std::mt19937 random(i);
  std::string name;
  for (unsigned k = 0; k < 8; ++k) name += static_cast<char>('a' + random() % 26);
  return name + " " + std::to_string(random() % 1000) + ".txt";
}

template <int (*kCompare)(const char*, const char*)>
bool less(const std::string& a, const std::string& b) {
  return kCompare(a.c_str(), b.c_str()) < 0;
}

template <int (*kCompare)(const char*, const char*)>
auto sort_by(const Names& names) {
  struct Sort {
    void operator()() { std::sort(sorted.begin(), sorted.end(), less<kCompare>); }
    const Names names;
    Names sorted;
  };
  return Sort{names, {}};
}

using Collator = std::unique_ptr<UCollator, void (*)(UCollator*)>;

// With numbers by value and a key for each name, as advised where each is compared many times.
auto sort_by_icu(const Names& names) {
  struct Sort {
    void operator()() {
      std::vector<std::pair<byte_string, std::string>> keyed;
      for (std::string& name : sorted) {
        keyed.emplace_back(key(name), std::move(name));
      }
      std::sort(keyed.begin(), keyed.end());
      std::transform(keyed.begin(), keyed.end(), sorted.begin(),
                     [](auto& entry) { return std::move(entry.second); });
    }

    byte_string key(const std::string& name) const {
      UChar wide[256];
      int32_t length = 0;
      UErrorCode error = U_ZERO_ERROR;
      u_strFromUTF8(wide, 256, &length, name.data(), signed_size(name.size()), &error);
      byte_string text(256, 0);
      const int32_t size = ucol_getSortKey(collator.get(), wide, length, text.data(), 256);
      text.resize(static_cast<size_t>(size));
      return text;
    }

    Collator collator;
    const Names names;
    Names sorted;
  };
  UErrorCode error = U_ZERO_ERROR;
  Collator collator(ucol_open("en", &error), ucol_close);
  ucol_setAttribute(collator.get(), UCOL_NUMERIC_COLLATION, UCOL_ON, &error);
  bench::require(U_SUCCESS(error) != 0, "ICU's collator");
  return Sort{std::move(collator), names, {}};
}

// The least that sorting takes: bytes compared as they are.
int compare_bytes(const char* a, const char* b) { return strcmp(a, b); }
int compare_naturally(const char* a, const char* b) { return strnatcmp(a, b); }

void add_sorting(const std::string& kind, const Names& names) {
  const std::string work = "sorting 100000 names, " + kind;
  const auto refill = [](auto& unit) { unit.sorted = unit.names; };
  bench::add(
      work, "ours", [=] { return sort_by<compare_naturally>(names); }, refill);
  bench::add(
      work, "strverscmp", [=] { return sort_by<strverscmp>(names); }, refill);
  bench::add(
      work, "ICU", [=] { return sort_by_icu(names); }, refill);
  bench::add(
      work, "floor", [=] { return sort_by<compare_bytes>(names); }, refill);
}

void add_digits(size_t size) {
  const std::string a = std::string(size, '1') + "a";
  const std::string b = std::string(size, '1') + "b";
  const std::string work = "comparing " + std::to_string(size) + " equal digits";
  const auto add_one = [=](const char* who, int (*compare)(const char*, const char*)) {
    bench::add(work, who, [=] { return [=] { bench::keep(compare(a.c_str(), b.c_str())); }; });
  };
  add_one("ours", compare_naturally);
  add_one("strverscmp", strverscmp);
  add_one("floor", compare_bytes);
}

// ---- escaping ----

// All that escape_string() leaves alone, in these names.
constexpr char kAllowed[] = " !#$&'()+,/;=@[]^`{}";

ByGlib<char> escaped_glib(const std::string& name) {
  return ByGlib<char>(g_uri_escape_string(name.c_str(), kAllowed, TRUE));
}

ByGlib<char> unescaped_glib(const std::string& name) {
  return ByGlib<char>(g_uri_unescape_string(name.c_str(), nullptr));
}

template <class Code>
void add(const std::string& work, const std::string& who, const std::string& from, Code code) {
  bench::add(work, who, [=] { return [=] { bench::keep(code(from)); }; });
}

void add_escaping(const std::string& kind, const std::string& name) {
  const std::string escaped = util::escape_string(name);
  bench::require(name.size() == 40, "a name of 40 bytes");
  bench::require(escaped_glib(name).get() == escaped, kind);
  bench::require(util::unescape_string(escaped) == name && unescaped_glib(escaped).get() == name,
                 kind + " back");

  add("escaping, " + kind, "ours", name, util::escape_string);
  add("escaping, " + kind, "GLib", name, escaped_glib);
  add("unescaping, " + kind, "ours", escaped, util::unescape_string);
  add("unescaping, " + kind, "GLib", escaped, unescaped_glib);
}

}  // namespace

void bench::add_cases() {
  add_base64("16 B", 16);
  add_base64("1 KiB", 1 << 10);
  add_base64("1 MiB", 1 << 20);

  add_sorting("pictures", names_of(picture));
  add_sorting("episodes", names_of(episode));
  add_sorting("tracks", names_of(track));
  add_sorting("documents", names_of(document));
  add_digits(1000);
  add_digits(100000);

  add_escaping("nothing reserved", "Holiday in the mountains 2007, part 1 of");
  add_escaping("3 of 40", "What? Where? 2007: the best of summers 4");
  add_escaping("every one", "<<::>>??**||<<::>>??**||<<::>>??**||<<::");
}
