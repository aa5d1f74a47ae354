// SPDX-License-Identifier: MIT-0
#include <service/ControlSocket.h>
#include <service/CrashEntry.h>
#include <service/InstanceLock.h>
#include <service/LogFile.h>
#include <service/Settings.h>
#include <service/Watchdog.h>
#include <service/key_path.h>
#include <service/notify.h>

#include <csignal>
#include <iostream>

static int serve(const std::string& state, const std::string& logs, const std::string& run) {
  const service::InstanceLock only_one(run);
  service::Loop loop;
  loop.stop_on({SIGTERM, SIGINT});

  auto* const file = new service::LogFile(logs + "/" NAME ".log");  // from here on, the logger's
  util::logger* const log = util::logger::rootLogger();
  log->setPublisher(file);
  log->enable(util::INFO);
  const service::CrashEntry crash(*file, *log, &loop);

  service::Settings settings(state + "/settings.plist");
  const auto greeting = [&] { return service::get(settings.list(), "greeting", "Hello"); };
  const service::Handle hangup = loop.on_signal(SIGHUP, [&] { settings.reload(); });

  const service::Handle work =
      loop.every(60000, [&](uint64_t) { UTIL_LOG(log, util::INFO, "%s", greeting().c_str()); });

  const auto answer = [&](const service::Request& request) -> std::string {
    if (request.line == "status") return "greets with: " + greeting() + "\n";
    if (request.line.rfind("greet ", 0) != 0) throw std::invalid_argument("status, or greet TEXT");
    settings.change("greeting", request.line.substr(6));
    return "from now on: " + greeting() + "\n";
  };
  service::ControlSocket control(loop, run + "/control", answer);

  service::Watchdog watchdog;
  loop.addEvent(&watchdog);
  service::notify("READY=1");
  UTIL_LOG(log, util::INFO, "started");
  loop.run(500);
  UTIL_LOG(log, util::INFO, "stopped");
  return 0;
}

int main(int argc, char** argv) try {  // [--in FOLDER] [REQUEST]
  std::string state = "/var/lib/" NAME, logs = "/var/log/" NAME, run = "/run/" NAME;
  const bool in_one_folder = argc > 2 && std::string(argv[1]) == "--in";
  if (in_one_folder) state = logs = run = argv[2];
  std::string request;
  for (int i = in_one_folder ? 3 : 1; i < argc; ++i) request += std::string(" ") + argv[i];
  if (request.empty()) return serve(state, logs, run);
  std::cout << service::ask(run + "/control", request.substr(1), 5000);
} catch (const std::exception& error) {
  std::cerr << NAME ": " << error.what() << "\n";
  return 1;
}
