// SPDX-License-Identifier: MIT
#include "tools/conf_check.h"

#include "tools/outline.h"

#include <algorithm>
#include <locale>
#include <set>
#include <sstream>
#include <string_view>
#include <tuple>
#include <utility>

#include <ticpp.h>

namespace tools {
namespace {

// ---- the elements that util::NASConfDB reads ----

enum Times { kOptional, kRequired, kRepeated };  // of all but a repeated one only the first is read

struct Rule;

// What an element holds.
struct Content {
  enum Kind { kElements, kText, kTextOrNothing, kNumber, kWord } kind;
  const Rule* begin = nullptr;
  const Rule* end = nullptr;
  std::string_view word = {}, other = {};
};

struct Rule {
  std::string_view name;
  Times times;
  Content content;
};

constexpr Content kText = {Content::kText};
constexpr Content kTextOrNothing = {Content::kTextOrNothing};
constexpr Content kNumber = {Content::kNumber};

template <size_t kCount>
constexpr Content holds(const Rule (&rules)[kCount]) {
  return {Content::kElements, rules, rules + kCount};
}

// The words that have a meaning.
constexpr Content one_of(std::string_view word, std::string_view other) {
  return {Content::kWord, nullptr, nullptr, word, other};
}

constexpr Content kTrueOrFalse = one_of("true", "false");
constexpr Content kYesOrNo = one_of("yes", "no");
constexpr Content kType = one_of("public", "private");
constexpr Content kStatus = one_of("active", "suspended");
constexpr Content kLocation = one_of("internal_share", "external_share");
constexpr Content kAccessType = one_of("full", "readonly");

constexpr Rule kWebgui[] = {
    {"adminpasswd", kOptional, kTextOrNothing},
    {"protocol",    kOptional, kText         },
};

constexpr Rule kDisk[] = {
    {"device",           kRequired, kText  },
    {"inactivityperiod", kRequired, kNumber},
    {"lastselftest",     kRequired, kNumber},
};
constexpr Rule kHdparams[] = {
    {"disk", kRepeated, holds(kDisk)}
};

constexpr Rule kSystem[] = {
    {"timeformat",   kOptional, kText           },
    {"hostname",     kOptional, kText           },
    {"domain",       kOptional, kText           },
    {"language",     kOptional, kText           },
    {"dhcpenabled",  kOptional, kTrueOrFalse    },
    {"timezone",     kOptional, kText           },
    {"printenabled", kOptional, kTrueOrFalse    },
    {"webgui",       kOptional, holds(kWebgui)  },
    {"hdparams",     kOptional, holds(kHdparams)},
    {"platform",     kOptional, kText           },
    {"drives",       kOptional, kText           },
};

constexpr Rule kLan[] = {
    {"if",      kOptional, kText},
    {"ipaddr",  kOptional, kText},
    {"netmask", kOptional, kText},
    {"rand_ip", kOptional, kText},
};
constexpr Rule kInterfaces[] = {
    {"lan", kRepeated, holds(kLan)}
};

constexpr Rule kMount[] = {
    {"device",     kOptional, kText         },
    {"fstype",     kOptional, kText         },
    {"mountpoint", kOptional, kTextOrNothing},
    {"options",    kOptional, kTextOrNothing},
};
constexpr Rule kMounts[] = {
    {"mount", kRepeated, holds(kMount)}
};

constexpr Rule kSamba[] = {
    {"netbiosname", kOptional, kText   },
    {"workgroup",   kOptional, kText   },
    {"serverdesc",  kOptional, kText   },
    {"localmaster", kOptional, kYesOrNo},
};

constexpr Rule kShareUser[] = {
    {"username",   kRequired, kText      },
    {"accesstype", kRequired, kAccessType},
};
constexpr Rule kShareUsers[] = {
    {"user", kRepeated, holds(kShareUser)}
};
constexpr Rule kShareAccess[] = {
    {"users", kOptional, holds(kShareUsers)}
};

constexpr Rule kShare[] = {
    {"sharename",     kOptional, kText              },
    {"sharetype",     kOptional, kType              },
    {"sharestatus",   kOptional, kStatus            },
    {"sharelocation", kOptional, kLocation          },
    {"access",        kOptional, holds(kShareAccess)},
};
constexpr Rule kShares[] = {
    {"share", kRepeated, holds(kShare)}
};

constexpr Rule kUser[] = {
    {"username", kRequired, kText  },
    {"uid",      kRequired, kNumber},
};
constexpr Rule kUsers[] = {
    {"user", kRepeated, holds(kUser)}
};
constexpr Rule kAccess[] = {
    {"users", kOptional, holds(kUsers)}
};

constexpr Rule kRoot[] = {
    {"version",    kRequired, kNumber           },
    {"system",     kRequired, holds(kSystem)    },
    {"interfaces", kOptional, holds(kInterfaces)},
    {"mounts",     kOptional, holds(kMounts)    },
    {"samba",      kOptional, holds(kSamba)     },
    {"shares",     kOptional, holds(kShares)    },
    {"access",     kOptional, holds(kAccess)    },
};
constexpr Rule kDocument[] = {
    {"nas_conf_db", kRequired, holds(kRoot)}
};

// ---- the walk ----

std::string tag(std::string_view name) { return "<" + std::string(name) + ">"; }

// Walks over what util::NASConfDB reads, and asks each element for its text as that does.
class Walk {
 public:
  void children(const ticpp::Node& parent, const Content& content) {
    std::set<const Rule*> seen;
    for (ticpp::Element* one = parent.FirstChildElement(false); one != nullptr;
         one = one->NextSiblingElement(false)) {
      const std::string name = one->Value();
      const Rule* const rule = std::find_if(content.begin, content.end,
                                            [&name](const Rule& row) { return row.name == name; });
      if (rule == content.end) {
        ignore(*one, tag(name) + " is not known here");
      } else if (!seen.insert(rule).second && rule->times != kRepeated) {
        ignore(*one, "another " + tag(name) + ", only the first is read");
      } else {
        element(*one, rule->content);
      }
    }
    for (const Rule* rule = content.begin; rule != content.end; ++rule) {
      if (rule->times == kRequired && seen.count(rule) == 0) missing(parent, *rule);
    }
  }

  std::vector<Finding> in_order() {
    std::stable_sort(findings_.begin(), findings_.end(),
                     [](const Finding& one, const Finding& other) {
                       return std::tie(one.row, one.column) < std::tie(other.row, other.column);
                     });
    return std::move(findings_);
  }

 private:
  void element(const ticpp::Element& element, const Content& content) {
    switch (content.kind) {
      case Content::kElements: elements_only(element); break;
      case Content::kText: has_text(element); break;
      case Content::kTextOrNothing: break;
      case Content::kNumber: number(element); break;
      case Content::kWord: word(element, content); break;
    }
    children(element, content);
  }

  void elements_only(const ticpp::Element& element) {
    if (!element.GetText(false).empty()) ignore(element, "the text in " + tag(element.Value()));
  }

  bool has_text(const ticpp::Element& element) {
    try {
      element.GetText(true);
      return true;
    } catch (const ticpp::Exception&) {
      fault(element, tag(element.Value()) + " has no text at its start");
      return false;
    }
  }

  void number(const ticpp::Element& element) {
    if (!has_text(element)) return;
    const std::string text = element.GetText(true);
    const std::string name = tag(element.Value());
    int number = 0;
    try {
      element.GetText(&number, true);
    } catch (const ticpp::Exception&) {
      return fault(element, name + ": " + quoted(text) + " is no number, or too large a one");
    }
    if (is_all_of(number, text)) return;
    ignore(element, "what follows the number in " + name + ": " + quoted(text) + " is read as " +
                        std::to_string(number));
  }

  static bool is_all_of(int number, const std::string& text) {
    std::istringstream stream(text);
    stream.imbue(std::locale::classic());
    stream >> number >> std::ws;
    return stream.eof();
  }

  void word(const ticpp::Element& element, const Content& content) {
    if (!has_text(element)) return;
    const std::string text = element.GetText(true);
    if (text == content.word || text == content.other) return;
    ignore(element, tag(element.Value()) + ": " + quoted(text) + " is neither " +
                        quoted(content.word) + " nor " + quoted(content.other));
  }

  void missing(const ticpp::Node& parent, const Rule& rule) {
    const bool whole_document = &rule == kDocument;
    fault(parent, tag(rule.name) + " is missing" +
                      (whole_document ? std::string() : " in " + tag(parent.Value())));
  }

  void fault(const ticpp::Node& at, const std::string& text) {
    findings_.push_back({true, at.Row(), at.Column(), text});
  }

  void ignore(const ticpp::Node& at, const std::string& text) {
    findings_.push_back({false, at.Row(), at.Column(), "ignored: " + text});
  }

  std::vector<Finding> findings_;
};

}  // namespace

std::vector<Finding> check_configuration(const std::string& path) {
  ticpp::Document document;
  document.LoadFile(path);
  Walk walk;
  walk.children(document, holds(kDocument));
  return walk.in_order();
}

}  // namespace tools
