// SPDX-License-Identifier: MIT
#include "bench/bench.h"
#include "util/PropertyList.h"
#include "util/base64.h"
#include "util/datetime.h"

#include <fcntl.h>
#include <plist/plist.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <memory>

#include <tinyxml.h>

namespace {

using util::Value;
using util::value_array;
using util::value_struct;

constexpr util::utime_t kCreated = 1172757909000;

// A share as a back end keeps it: mostly short texts, some numbers, flags, a date, a few bytes.
value_struct share(int number) {
  const std::string name = "share " + std::to_string(number);
  const util::byte_string key(16, static_cast<unsigned char>(number % 256));
  value_array users;
  for (const char* user : {"anna", "bernd", "guest & friends"}) {
    users.push_back(value_struct{
        {"name",     user },
        {"readonly", false}
    });
  }
  return {
      {"name",    name                                                     },
      {"path",    "/shares/internal/" + name                               },
      {"comment", "Photos, films <and> music of the family, sorted by year"},
      {"size",    number * 1000                                            },
      {"used",    0.25 * (number % 400)                                    },
      {"public",  number % 2 == 0                                          },
      {"created", util::utime_t{kCreated}                                  },
      {"key",     key                                                      },
      {"users",   users                                                    },
  };
}

void fill(util::PropertyList& list, int shares) {
  value_array all;
  for (int i = 0; i < shares; ++i) all.push_back(share(i));
  list.setValueForKey("shares", all);
}

// ---- ours ----

auto save_ours(int shares) {
  const auto list = std::make_shared<util::PropertyList>(bench::scratch_file("ours.plist"));
  fill(*list, shares);
  return [list] { list->save(); };
}

auto save_ours_durably(int shares) {
  const auto list = std::make_shared<util::PropertyList>(bench::scratch_file("durable.plist"));
  fill(*list, shares);
  return [list] { list->saveDurably(); };
}

auto load_ours(const std::string& file) {
  const auto list = std::make_shared<util::PropertyList>(file);
  return [list] { list->load(); };
}

// ---- libplist ----

using Plist = std::unique_ptr<void, void (*)(plist_t)>;

std::shared_ptr<Plist> read_plist(const std::string& file) {
  const std::string text = bench::read_file(file);
  plist_t list = nullptr;
  plist_from_xml(text.data(), static_cast<uint32_t>(text.size()), &list);
  return std::make_shared<Plist>(list, plist_free);
}

auto save_libplist(const std::string& original) {
  const std::string file = bench::scratch_file("libplist.plist");
  return [list = read_plist(original), file] {
    char* text = nullptr;
    uint32_t size = 0;
    plist_to_xml(list->get(), &text, &size);
    std::ofstream(file).write(text, size);
    plist_to_xml_free(text);
  };
}

// By the fewest calls that keep a whole file and a backup at all times.
auto save_libplist_durably(const std::string& original) {
  const std::string file = bench::scratch_file("replaced.plist");
  bench::write_file(file, "");
  return [list = read_plist(original), file, fresh = file + ".0", second = file + ".1"] {
    char* text = nullptr;
    uint32_t size = 0;
    plist_to_xml(list->get(), &text, &size);
    const int to = open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    const bool saved = write(to, text, size) == ssize_t{size} && fchmod(to, 0644) == 0 &&
                       fsync(to) == 0 && close(to) == 0 &&
                       link(file.c_str(), second.c_str()) == 0 &&
                       rename(second.c_str(), (file + "~").c_str()) == 0 &&
                       rename(fresh.c_str(), file.c_str()) == 0;
    plist_to_xml_free(text);
    bench::require(saved, file);
  };
}

auto load_libplist(const std::string& file) {
  return [file] { bench::keep(read_plist(file)); };
}

// ---- TinyXML alone, which is the floor of what goes through it: a tree is built and printed ----

class Builder {
 public:
  static void value(TiXmlNode& to, const Value& v) {
    switch (v.get_type()) {
      case util::INTEGER: return leaf(to, "integer", std::to_string(static_cast<const int&>(v)));
      case util::BOOLEAN: add(to, static_cast<const bool&>(v) ? "true" : "false"); return;
      case util::DOUBLE: {
        char text[32];
        snprintf(text, sizeof text, "%g", static_cast<const double&>(v));
        return leaf(to, "real", text);
      }
      case util::STRING: return leaf(to, "string", v);
      case util::DATE_TIME: return leaf(to, "date", util::unparse_time(v, "%FT%TZ"));
      case util::BYTE_STRING: {
        std::string text;
        util::b64_encode(v, text, 0);
        return leaf(to, "data", text);
      }
      case util::STRUCT: return dict(*add(to, "dict"), v);
      case util::ARRAY: return array(*add(to, "array"), v);
      case util::VOID: abort();
    }
  }

 private:
  static TiXmlNode* add(TiXmlNode& to, const char* name) {
    return to.LinkEndChild(new TiXmlElement(name));
  }

  static void leaf(TiXmlNode& to, const char* name, const std::string& text) {
    add(to, name)->LinkEndChild(new TiXmlText(text));
  }

  static void dict(TiXmlNode& to, const value_struct& entries) {
    for (const auto& entry : entries) {
      leaf(to, "key", entry.first);
      value(to, entry.second);
    }
  }

  static void array(TiXmlNode& to, const value_array& items) {
    for (const Value& item : items) value(to, item);
  }
};

auto save_tinyxml(int shares) {
  util::PropertyList list("");
  fill(list, shares);
  const auto all = std::make_shared<Value>(list.getProperties());
  const std::string file = bench::scratch_file("tinyxml.plist");
  return [all, file] {
    TiXmlDocument document;
    document.LinkEndChild(new TiXmlDeclaration("1.0", "UTF8", "yes"));
    auto* const plist = new TiXmlElement("plist");
    plist->SetAttribute("version", "1.0");
    document.LinkEndChild(plist);
    Builder::value(*plist, *all);
    bench::require(document.SaveFile(file), file);
  };
}

auto load_tinyxml(const std::string& file) {
  return [file] {
    TiXmlDocument document;
    bench::require(document.LoadFile(file), file);
  };
}

void add_size(const std::string& size, int shares) {
  using bench::add;
  save_ours(shares)();
  const std::string file = bench::scratch_file(std::to_string(shares) + ".plist");
  bench::write_file(file, bench::read_file(bench::scratch_file("ours.plist")));

  const std::string saving = "saving a list of " + size;
  add(saving, "ours", [=] { return save_ours(shares); });
  add(saving, "libplist", [=] { return save_libplist(file); });
  add(saving, "TinyXML", [=] { return save_tinyxml(shares); });

  const std::string durably = "saving durably a list of " + size;
  add(durably, "ours", [=] { return save_ours_durably(shares); });
  add(durably, "libplist", [=] { return save_libplist(file); });
  add(durably, "libplist, durably", [=] { return save_libplist_durably(file); });

  const std::string loading = "loading a list of " + size;
  add(loading, "ours", [=] { return load_ours(file); });
  add(loading, "libplist", [=] { return load_libplist(file); });
  add(loading, "TinyXML", [=] { return load_tinyxml(file); });
}

void check(int shares) {
  save_ours(shares)();
  const std::string file = bench::scratch_file("ours.plist");
  const std::string text = bench::read_file(file);
  save_tinyxml(shares)();
  bench::require(bench::read_file(bench::scratch_file("tinyxml.plist")) == text, "TinyXML's file");
  save_ours_durably(shares)();
  bench::require(bench::read_file(bench::scratch_file("durable.plist")) == text, "a durable file");
  save_libplist(file)();
  util::PropertyList again(bench::scratch_file("libplist.plist"));
  again.load();
  again.vectorForKey("shares", false);
}

}  // namespace

// Syncing takes as long as the disk does, whoever asks for it.
extern "C" int fsync(int /*descriptor*/) { return 0; }

void bench::add_cases() {
  check(50);
  add_size("10 KB", 9);
  add_size("1 MB", 900);
}
