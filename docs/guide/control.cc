// SPDX-License-Identifier: MIT
#include <service/Command.h>
#include <service/ControlSocket.h>
#include <service/InstanceLock.h>

#include <csignal>
#include <iostream>
#include <stdexcept>
#include <thread>

// What the daemon's command-line client does, here on a thread of its own.
void client() {
  for (const char* line : {"space", "stpo", "stop"}) {
    try {
      const std::string answer = service::ask("control", line, 5000);
      std::cout << line << " > " << answer;
    } catch (const std::exception& error) {
      std::cout << line << " > failed: " << error.what() << "\n";
    }
  }
}

int main() {
  const service::InstanceLock only_one(".");
  service::Loop loop;
  loop.stop_on({SIGTERM, SIGINT});

  std::string space = "not known yet\n";
  service::ControlSocket control(loop, "control", [&](const service::Request& request) {
    if (request.line == "space") return space;
    if (request.line != "stop") throw std::invalid_argument("no such command: " + request.line);
    loop.stop();
    return std::string("stopping\n");
  });

  std::thread asking;
  service::Command command({"echo", "12 GiB *"});
  command.time_limit = 5000;
  const service::Process running = command.start(loop, [&](const service::Command::Result& result) {
    std::cout << "the program " << result.end() << "\n";
    if (result.succeeded()) space = result.output;
    asking = std::thread(client);
  });

  loop.run(100);
  asking.join();
}
