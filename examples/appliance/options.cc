// SPDX-License-Identifier: MIT
#include "options.h"

#include <getopt.h>

#include <charconv>
#include <cstring>

namespace appliance {

const char kUsage[] =
    "usage: nasd [option...]\n"
    "\n"
    "Samples the machine once a cycle, keeps its state for the status page and logs what\n"
    "happens, with a summary now and then, into a set of rolling files. SIGTERM and SIGINT\n"
    "end it within one cycle; SIGHUP makes it read its configuration again.\n"
    "\n"
    "  --config FILE        the configuration document; default nas_conf_db.xml\n"
    "  --state FILE         put the state into the property list FILE each cycle, without\n"
    "                       having it kept on disk: for a tmpfs; default state.plist\n"
    "  --lasting FILE       keep what outlasts a power cut in the property list FILE, which\n"
    "                       is written when it changes: the warnings; one daemon for its\n"
    "                       folder; default lasting.plist\n"
    "  --control SOCKET     let nasctl and the web back end ask at SOCKET; default\n"
    "                       nasd.control\n"
    "  --log FILE           log into FILE, FILE.0, ...; default nasd.log\n"
    "  --enable CATEGORY    log that category, too; may be given several times\n"
    "  --cycle MS           length of a cycle in milliseconds, up to 10000; default 1000\n"
    "  --cycles N           end after N cycles; default: run until a signal\n"
    "  --summary MS         time between summaries in milliseconds; default 60000\n"
    "  --disk PATH          watch the free space of the file system of PATH; default /\n"
    "  --help               print this and end\n"
    "\n"
    "Exit status: 0 after a signal or the last cycle, 1 if the configuration cannot be read,\n"
    "the log cannot be written or another daemon is running, 2 for a wrong command line.\n";

namespace {

constexpr unsigned long kMostCycles = 1000000000;
constexpr unsigned long kLongestCycle = 10000;
constexpr unsigned long kDay = 24UL * 60 * 60 * 1000;

const option kOptions[] = {
    {"config",  required_argument, nullptr, 'f'},
    {"control", required_argument, nullptr, 'a'},
    {"cycle",   required_argument, nullptr, 'c'},
    {"cycles",  required_argument, nullptr, 'n'},
    {"disk",    required_argument, nullptr, 'd'},
    {"enable",  required_argument, nullptr, 'e'},
    {"help",    no_argument,       nullptr, 'h'},
    {"lasting", required_argument, nullptr, 'k'},
    {"log",     required_argument, nullptr, 'l'},
    {"state",   required_argument, nullptr, 's'},
    {"summary", required_argument, nullptr, 'm'},
    {nullptr,   0,                 nullptr, 0  }
};

unsigned long number(const char* name, unsigned long most) {
  unsigned long value = 0;
  const char* const end = optarg + strlen(optarg);
  const auto [stop, error] = std::from_chars(optarg, end, value);
  if (error != std::errc() || stop != end || value < 1 || value > most) {
    throw bad_option(std::string(name) + " takes a number from 1 to " + std::to_string(most) +
                     ", not '" + optarg + "'");
  }
  return value;
}

}  // namespace

const util::category* category(const std::string& name) {
  const util::category* const found = util::category::forName(name);
  if (found != nullptr) return found;
  std::string known;
  for (const util::category* each : util::category::categories()) {
    known += (known.empty() ? "" : ", ") + each->name();
  }
  throw bad_option("no category '" + name + "' among " + known);
}

Options parse_options(int argc, char** argv) {
  Options options;
  opterr = 0;  // reported by the exception
  for (;;) {
    const int at = optind;
    switch (getopt_long(argc, argv, "+:", kOptions, nullptr)) {
      case 'a': options.control = optarg; break;
      case 'c': options.cycle = number("--cycle", kLongestCycle); break;
      case 'd': options.disk = optarg; break;
      case 'e': options.enabled.push_back(category(optarg)); break;
      case 'f': options.config = optarg; break;
      case 'h': options.help = true; break;
      case 'k': options.lasting = optarg; break;
      case 'l': options.log = optarg; break;
      case 'm': options.summary = number("--summary", kDay); break;
      case 'n': options.cycles = number("--cycles", kMostCycles); break;
      case 's': options.state = optarg; break;
      case ':': throw bad_option(std::string(argv[at]) + " takes an argument");
      case '?': throw bad_option(std::string("no option ") + argv[at]);
      default:
        if (optind < argc) throw bad_option(std::string("no option ") + argv[optind]);
        return options;
    }
  }
}

}  // namespace appliance
