// SPDX-License-Identifier: MIT
#include "keeper.h"

#include "host.h"
#include "log.h"
#include "shares.h"
#include "storage.h"
#include "texts.h"

#include <util/Timer.h>

#include <filesystem>
#include <utility>

namespace appliance {

Keeper::Keeper(const Options& options, const Configuration& configuration, const Machine& machine)
    : options_(options), configuration_(configuration), machine_(machine), state_(options.state) {
  attempt("starting without a history", [this] { restore(); });
}

void Keeper::runLoop(util::utime_t) {
  const auto now = static_cast<time_t>(util::Timer::now() / 1000);
  attempt("no acknowledgements", [this] { take_acknowledgements(); });
  update_warnings(now);
  add_to_history(now);
  attempt("state not saved", [this, now] { save(now); });
  log()->flush();  // The page shows the newest entries beside the state.
}

void Keeper::restore() {
  state_.load();
  if (state_.getProperties().empty()) return;
  history_.restore(state_.mapForKey("history", false));
  warnings_.restore(state_.vectorForKey("warnings", false));
  UTIL_LOG(log(), util::INFO, "taking up the state of %s", state_.stringForKey("written").c_str());
}

void Keeper::take_acknowledgements() {
  const Ids ids = acknowledged(options_.acknowledged);
  for (const std::string& text : warnings_.acknowledge(ids)) {
    UTIL_LOG(log(), util::INFO, "acknowledged: %s", text.c_str());
  }
}

void Keeper::update_warnings(time_t now) {
  const util::NASConfDB& db = configuration_.now();
  std::vector<std::string> causes;
  add_host_faults(db, machine_, causes);
  add_storage_faults(db, causes);
  add_share_faults(db, causes);
  if (!configuration_.fault().empty()) {
    causes.push_back("The new configuration is not in use: " + configuration_.fault());
  }
  const Warnings::Changes changes = warnings_.update(causes, now);
  for (const std::string& text : changes.come) {
    UTIL_LOG(alerts(), util::WARNING, "%s", text.c_str());
  }
  for (const std::string& text : changes.gone) {
    UTIL_LOG(alerts(), util::INFO, "no longer: %s", text.c_str());
  }
}

void Keeper::add_to_history(time_t now) {
  const Traffic rate = machine_.traffic.rate();
  history_.add({utc_text(now), machine_.load.load().front(), static_cast<double>(rate.received),
                static_cast<double>(rate.sent)});
}

void Keeper::save(time_t now) {
  const util::NASConfDB& db = configuration_.now();
  state_.getProperties().clear();
  state_["written"] = utc_text(now);
  state_["cycle"] = static_cast<int>(options_.cycle);
  state_["log"] = std::filesystem::absolute(options_.log).string();
  state_["system"] = system(db, machine_);
  state_["history"] = history_.value();
  state_["interfaces"] = interfaces(db, machine_);
  state_["disks"] = disks(db);
  state_["volumes"] = volumes(db);
  state_["shares"] = shares(db);
  state_["warnings"] = warnings_.value();
  state_.saveDurably();
}

// Does the work and logs its failure, but the same failure only once until the work succeeds.
void Keeper::attempt(const char* what, const std::function<void()>& work) {
  try {
    work();
    failures_.erase(what);
  } catch (const std::exception& failure) {
    const std::string text = failure.what();
    if (std::exchange(failures_[what], text) == text) return;
    UTIL_LOG(log(), util::WARNING, "%s: %s", what, text.c_str());
  }
}

}  // namespace appliance
