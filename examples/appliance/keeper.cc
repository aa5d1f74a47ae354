// SPDX-License-Identifier: MIT
#include "keeper.h"

#include "files.h"
#include "host.h"
#include "shares.h"
#include "storage.h"
#include "texts.h"

#include <service/recovery.h>

#include <ctime>
#include <filesystem>

namespace appliance {

Keeper::Keeper(const Options& options, const Configuration& configuration, const Machine& machine)
    : options_(options),
      configuration_(configuration),
      machine_(machine),
      state_(options.state),
      lasting_(options.lasting) {
  restoring_history_([this] { restore_history(); });
  restoring_warnings_([this] { restore_warnings(); });
}

void Keeper::runLoop(util::utime_t) {
  add_to_history();
  save();
}

void Keeper::save() {
  const time_t now = std::time(nullptr);
  update_warnings(now);
  saving_state_([this, now] { save_state(now); });
  saving_warnings_([this] { save_warnings(); });
}

std::string Keeper::acknowledge(const std::string& id) {
  std::string text = warnings_.acknowledge(id);
  UTIL_LOG(log(), util::INFO, "acknowledged: %s", text.c_str());
  unsaved_ = true;
  saving_warnings_([this] { save_warnings(); });
  return text;
}

void Keeper::restore_history() {
  load(state_);
  if (state_.getProperties().empty()) return;
  history_.restore(state_.mapForKey("history", false), std::time(nullptr), uptime());
  UTIL_LOG(log(), util::INFO, "taking up the state of %s", state_.stringForKey("written").c_str());
}

void Keeper::restore_warnings() {
  remove_leftovers(lasting_);
  refuse_special(lasting_.path());
  const service::Recovery found = service::recover(lasting_);
  if (!found.reason.empty()) {
    UTIL_LOG(log(), util::WARNING, "taking the backup: %s", found.reason.c_str());
  }
  warnings_.restore(lasting_.vectorForKey("warnings", true));
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
  if (!changes.come.empty() || !changes.gone.empty()) unsaved_ = true;
  for (const std::string& text : changes.come) {
    UTIL_LOG(alerts(), util::WARNING, "%s", text.c_str());
  }
  for (const std::string& text : changes.gone) {
    UTIL_LOG(alerts(), util::INFO, "no longer: %s", text.c_str());
  }
}

void Keeper::add_to_history() {
  const Traffic rate = machine_.rate;
  history_.add({uptime(), machine_.load.front(), static_cast<double>(rate.received),
                static_cast<double>(rate.sent)});
}

void Keeper::save_state(time_t now) {
  const util::NASConfDB& db = configuration_.now();
  state_.getProperties().clear();
  state_["written"] = utc_text(now);
  state_["cycle"] = static_cast<int>(options_.cycle);
  state_["log"] = std::filesystem::absolute(options_.log).string();
  state_["names"] = own_names(db);
  state_["system"] = system(db, machine_);
  const util::value_struct pins = board(machine_);
  if (!pins.empty()) state_["board"] = pins;
  state_["history"] = history_.value(now, uptime());
  state_["interfaces"] = interfaces(db, machine_);
  state_["disks"] = disks(db);
  state_["volumes"] = volumes(db);
  state_["shares"] = shares(db);
  state_["warnings"] = warnings_.value();
  replace(state_);
}

void Keeper::save_warnings() {
  if (!unsaved_) return;
  lasting_["warnings"] = warnings_.value();
  lasting_.saveDurably();
  unsaved_ = false;
}

}  // namespace appliance
