// SPDX-License-Identifier: MIT
#include "bench/bench.h"
#include "util/Value.h"

#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>

namespace {

using nlohmann::json;

// ---- trees of one shape: an array of records of ten values with the record ----

constexpr int kValuesARecord = 10;

util::Value tree_ours(int values) {
  util::value_array records;
  for (int i = 0; i < values / kValuesARecord; ++i) {
    records.push_back(util::value_struct{
        {"name",    "share " + std::to_string(i)           },
        {"path",    "/shares/internal/" + std::to_string(i)},
        {"comment", "Photos, films and music"              },
        {"size",    i                                      },
        {"used",    0.5                                    },
        {"public",  true                                   },
        {"users",   util::value_array{"anna", "bernd"}     },
    });
  }
  return records;
}

json tree_nlohmann(int values) {
  json records = json::array();
  for (int i = 0; i < values / kValuesARecord; ++i) {
    records.push_back({
        {"name",    "share " + std::to_string(i)           },
        {"path",    "/shares/internal/" + std::to_string(i)},
        {"comment", "Photos, films and music"              },
        {"size",    i                                      },
        {"used",    0.5                                    },
        {"public",  true                                   },
        {"users",   {"anna", "bernd"}                      },
    });
  }
  return records;
}

// ---- what is done with them ----

template <class Tree>
struct Trees {
  explicit Trees(Tree t) : tree(std::move(t)) {}

  Tree tree;
  std::optional<Tree> other;
};

template <class Tree>
void add(const std::string& size, const std::string& who, const Tree& tree) {
  struct Copy : Trees<Tree> {
    using Trees<Tree>::Trees;
    void operator()() { this->other.emplace(this->tree); }
  };
  struct Move : Trees<Tree> {
    using Trees<Tree>::Trees;
    void operator()() {
      Tree away = std::move(this->tree);
      bench::keep(away);
      this->tree = std::move(away);
      bench::keep(this->tree);
    }
  };
  struct Destroy : Trees<Tree> {
    using Trees<Tree>::Trees;
    void operator()() { this->other.reset(); }
  };
  const auto clear = [](auto& unit) { unit.other.reset(); };
  const auto copy = [](auto& unit) { unit.other.emplace(unit.tree); };
  bench::add(
      "copying a tree of " + size, who, [=] { return Copy(tree); }, clear);
  bench::add(
      "destroying a tree of " + size, who, [=] { return Destroy(tree); }, copy);
  bench::add("moving a tree of " + size + " there and back", who, [=] { return Move(tree); });
}

}  // namespace

void bench::add_cases() {
  for (const int values : {100, 10000}) {
    const std::string size = std::to_string(values) + " values";
    ::add(size, "ours", tree_ours(values));
    ::add(size, "nlohmann", tree_nlohmann(values));
  }
}
