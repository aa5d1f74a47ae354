// SPDX-License-Identifier: MIT
#include "options.h"

#include <getopt.h>

#include <charconv>
#include <cstring>

namespace nasd {

const char kUsage[] =
    "usage: nasd [option...]\n"
    "\n"
    "Samples the machine once a cycle and logs what it finds, with a summary now and\n"
    "then, into a set of rolling files. SIGTERM and SIGINT end it within one cycle.\n"
    "\n"
    "  --log FILE      log into FILE, FILE.0, ...; default nasd.log\n"
    "  --cycle MS      length of a cycle in milliseconds; default 1000\n"
    "  --cycles N      end after N cycles; default: run until a signal\n"
    "  --summary MS    time between summaries in milliseconds; default 5000\n"
    "  --disk PATH     watch the free space of the file system of PATH; default /\n"
    "  --verbose       log what the event loop does, too\n"
    "  --help          print this and end\n"
    "\n"
    "Exit status: 0 after a signal or the last cycle, 1 if the log cannot be written,\n"
    "2 for a wrong command line.\n";

namespace {

constexpr unsigned long kMostCycles = 1000000000;
constexpr unsigned long kDay = 24 * 60 * 60 * 1000;

const option kOptions[] = {
    {"cycle",   required_argument, nullptr, 'c'},
    {"cycles",  required_argument, nullptr, 'n'},
    {"disk",    required_argument, nullptr, 'd'},
    {"help",    no_argument,       nullptr, 'h'},
    {"log",     required_argument, nullptr, 'l'},
    {"summary", required_argument, nullptr, 's'},
    {"verbose", no_argument,       nullptr, 'v'},
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

Options parse_options(int argc, char** argv) {
  Options options;
  opterr = 0;  // reported by the exception
  for (;;) {
    const int at = optind;
    switch (getopt_long(argc, argv, "+:", kOptions, nullptr)) {
      case 'c': options.cycle = number("--cycle", kDay); break;
      case 'd': options.disk = optarg; break;
      case 'h': options.help = true; break;
      case 'l': options.log = optarg; break;
      case 'n': options.cycles = number("--cycles", kMostCycles); break;
      case 's': options.summary = number("--summary", kDay); break;
      case 'v': options.verbose = true; break;
      case ':': throw bad_option(std::string(argv[at]) + " takes an argument");
      case '?': throw bad_option(std::string("no option ") + argv[at]);
      default:
        if (optind < argc) throw bad_option(std::string("no option ") + argv[optind]);
        return options;
    }
  }
}

}  // namespace nasd
