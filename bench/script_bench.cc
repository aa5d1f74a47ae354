// SPDX-License-Identifier: MIT
#include "bench/bench.h"
#include "service/json.h"
#include "util/JSEmit.h"
#include "util/Value.h"

#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cstdlib>
#include <memory>
#include <nlohmann/json.hpp>

namespace {

using nlohmann::json;

// One tree for all: shares with short texts, numbers and flags. Built as ours, turned into theirs.
util::Value tree(int shares) {
  util::value_array all;
  for (int i = 0; i < shares; ++i) {
    all.push_back(util::value_struct{
        {"name",    "share " + std::to_string(i)               },
        {"path",    "/shares/internal/" + std::to_string(i)    },
        {"comment", "Photos, films and music of the family"    },
        {"size",    i * 1000                                   },
        {"used",    0.25 * (i % 400)                           },
        {"public",  i % 2 == 0                                 },
        {"users",   util::value_array{"anna", "bernd", "guest"}},
    });
  }
  return all;
}

json to_nlohmann(const util::Value& v) {
  switch (v.get_type()) {
    case util::INTEGER: return static_cast<const int&>(v);
    case util::BOOLEAN: return static_cast<const bool&>(v);
    case util::DOUBLE: return static_cast<const double&>(v);
    case util::STRING: return static_cast<const std::string&>(v);
    case util::STRUCT: {
      json object = json::object();
      for (const auto& entry : static_cast<const util::value_struct&>(v)) {
        object[entry.first] = to_nlohmann(entry.second);
      }
      return object;
    }
    case util::ARRAY: {
      json array = json::array();
      for (const auto& item : static_cast<const util::value_array&>(v)) {
        array.push_back(to_nlohmann(item));
      }
      return array;
    }
    default: abort();
  }
}

auto emit_ours(int shares) {
  return [v = tree(shares)] { bench::keep(util::JSEmit().emitValue(v)); };
}

auto emit_nlohmann(int shares) {
  return [v = to_nlohmann(tree(shares))] { bench::keep(v.dump()); };
}

auto emit_rapidjson(int shares) {
  const auto document = std::make_shared<rapidjson::Document>();
  document->Parse(to_nlohmann(tree(shares)).dump().c_str());
  return [document] {
    rapidjson::StringBuffer text;
    rapidjson::Writer<rapidjson::StringBuffer> writer(text);
    document->Accept(writer);
    bench::keep(text.GetString());
  };
}

auto write_json(int shares) {
  return [v = tree(shares)] { bench::keep(service::to_json(v)); };
}

auto read_ours(const std::string& text) {
  return [text] { bench::keep(service::from_json(text)); };
}

auto read_nlohmann(const std::string& text) {
  return [text] { bench::keep(json::parse(text)); };
}

auto read_rapidjson(const std::string& text) {
  return [text] {
    rapidjson::Document document;
    document.Parse(text.data(), text.size());
    bench::keep(document);
  };
}

void add_size(const std::string& size, int shares) {
  std::string work = "script text of " + size;
  bench::add(work, "ours", [=] { return emit_ours(shares); });
  bench::add(work, "RapidJSON", [=] { return emit_rapidjson(shares); });
  bench::add(work, "nlohmann", [=] { return emit_nlohmann(shares); });
  work = "JSON text of " + size;
  const std::string text = service::to_json(tree(shares));
  bench::require(json::parse(text) == to_nlohmann(tree(shares)), "JSON text");
  bench::add(work, "ours", [=] { return write_json(shares); });
  bench::add(work, "RapidJSON", [=] { return emit_rapidjson(shares); });
  bench::add(work, "nlohmann", [=] { return emit_nlohmann(shares); });
  work = "JSON read, " + size;
  bench::add(work, "ours", [=] { return read_ours(text); });
  bench::add(work, "RapidJSON", [=] { return read_rapidjson(text); });
  bench::add(work, "nlohmann", [=] { return read_nlohmann(text); });
}

}  // namespace

void bench::add_cases() {
  const size_t size = util::JSEmit().emitValue(tree(500)).size();
  require(size > 95000 && size < 105000, "100 KB of text, not " + std::to_string(size));
  add_size("1 KB", 6);
  add_size("100 KB", 500);
}
