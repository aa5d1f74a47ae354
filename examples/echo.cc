// SPDX-License-Identifier: MIT
// Sends back what comes to port 7007 of this machine, and keeps count of its clients: echo [PORT]
#include <netinet/in.h>
#include <service/Loop.h>
#include <service/key_path.h>
#include <unistd.h>

#include <csignal>
#include <map>

int main(int argc, char** argv) {
  util::PropertyList kept("echo.plist");
  kept.load();
  kept["clients"] = service::get(kept, "clients", 0);
  const auto port = static_cast<in_port_t>(argc > 1 ? std::stoi(argv[1]) : 7007);
  const sockaddr_in at = {AF_INET, htons(port), {htonl(INADDR_LOOPBACK)}, {}};
  const int yes = 1, server = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
  setsockopt(server, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  if (bind(server, reinterpret_cast<const sockaddr*>(&at), sizeof at) < 0 || listen(server, 9) < 0)
    throw util::system_exception();
  service::Loop loop;
  std::map<int, service::Handle> clients;
  const auto echo = [&](int client) {
    char text[4096];
    const ssize_t size = recv(client, text, sizeof text, 0);
    if (size > 0 && send(client, text, size_t(size), MSG_NOSIGNAL | MSG_DONTWAIT) == size) return;
    clients.erase(client);  // before its number is free for another one
    close(client);
  };
  const auto welcome = [&] {  // at the edge and each second, in case no descriptor was left
    for (int client; (client = accept(server, nullptr, nullptr)) >= 0; ++kept.intForKey("clients"))
      clients[client] = loop.watch(client, EPOLLIN, [&, client](uint32_t) { echo(client); });
  };
  const auto connecting = loop.watch(server, EPOLLIN | EPOLLET, [&](uint32_t) { welcome(); });
  const auto retrying = loop.every(1000, [&](uint64_t) { welcome(); });
  const auto saving = loop.every(10000, [&](uint64_t) { kept.saveDurably(); });
  loop.stop_on({SIGTERM, SIGINT});
  loop.run(1000);
  kept.saveDurably();
}
