// SPDX-License-Identifier: MIT
// Every use of every C library call fails once, with each error that it may have: what was stated
// for that happens, no file stays open (nor memory, as the leak checker sees), and all works again
// afterwards.
#include "tests/support/faults.h"

#include "tests/support/clock.h"
#include "tests/support/files.h"
#include "tests/support/network.h"
#include "tests/support/work.h"
#include "util/NASConfDB.h"
#include "util/NetworkInterface.h"
#include "util/PropertyList.h"
#include "util/SuperLoop.h"
#include "util/ZEB_GPIO.h"
#include "util/logger.h"

#include <errno.h>
#include <string.h>
#include <unistd.h>

#include <exception>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

using namespace support;
using util::PropertyList;

namespace {

using Calls = std::vector<const char*>;

void replace_all(std::string& text, const std::string& from, const std::string& to) {
  for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
}

// One use of a call that fails while an action runs, in a folder of its own.
class Disturbance {
 public:
  Disturbance(const char* call, int nth, int error) : call_(call), nth_(nth), error_(error) {}

  const TempDir dir;

  // "done", or what `action` throws with "%" for the system's text and without the folder.
  std::string operator()(const std::function<void()>& action) {
    const Unsynced quick;
    const int descriptors = open_descriptors();
    std::string outcome = "done";
    {
      const Fault fault(call_, error_, nth_);
      try {
        action();
      } catch (const std::exception& e) {
        outcome = e.what();
      }
      fired_ = fault.fired();
    }
    EXPECT_EQ(descriptors + left_open, open_descriptors());
    replace_all(outcome, dir.path() + "/", "");
    replace_all(outcome, strerror(error_), "%");
    return outcome;
  }

  bool fired() const { return fired_; }

  int left_open = 0;  // descriptors that the action is expected to leave

 private:
  const char* call_;
  int nth_;
  int error_;
  bool fired_ = false;
};

using Round = std::function<std::string(Disturbance&)>;
using Outcomes = std::map<std::string, std::string>;

// What `round` comes to with each use of `call` failing, by use: "link 2". All under the call alone
// where each use has the same outcome.
Outcomes outcomes(const char* call, const Round& round) {
  Outcomes seen;
  bool alike = true;
  for (const int error : kErrors) {
    for (int nth = 1;; ++nth) {
      SCOPED_TRACE(std::string(call) + " " + std::to_string(nth) + ": " + strerror(error));
      Disturbance disturbance(call, nth, error);
      const std::string outcome = round(disturbance);
      if (!disturbance.fired()) break;
      const auto at = seen.emplace(call + (" " + std::to_string(nth)), outcome).first;
      EXPECT_EQ(at->second, outcome) << "otherwise with another error";
      alike = alike && outcome == seen.begin()->second;
    }
  }
  if (alike && !seen.empty())
    return {
        {call, seen.begin()->second}
    };
  return seen;
}

Outcomes outcomes(const Calls& calls, const Round& round) {
  Outcomes all;
  for (const char* const call : calls) all.merge(outcomes(call, round));
  return all;
}

// ---- what is disturbed ----

PropertyList list_of(const std::string& file, int number) {
  PropertyList list(file);
  list["date"] = util::utime_t{1172757909000};
  list["n"] = number;
  return list;
}

// A second that no entry has told yet: its text is made anew.
int64_t fresh_second() {
  static int64_t last = 1000000000000;
  return last += 1000;
}

// Logs three messages of at least `width` bytes to a file that may have `limit`. Tells which are in
// none of the files afterwards.
std::string log_and_rotate(Disturbance& disturbance, int width, off_t limit) {
  const FrozenClock clock(fresh_second());
  const TempDir& dir = disturbance.dir;
  const char* const entries[] = {"first", "second", "third"};
  dir.write("x.0", "old");
  std::string outcome;
  {
    std::optional<util::rolling_file_publisher> log;
    disturbance.left_open = 1;
    outcome = disturbance([&] {
      log.emplace(dir.file("x").c_str(), limit, 3);
      for (const char* const entry : entries) {
        publish(*log, "%-*s", width, entry);
        log->flush();
      }
    });
    publish(*log, "%s", "last");
  }
  std::string all;
  for (const std::string& name : dir.list()) all += dir.read(name);
  for (const char* const entry : {"old", "first", "second", "third"}) {
    if (all.find(entry) == std::string::npos) outcome.append(", lost ").append(entry);
  }
  EXPECT_NE(std::string::npos, all.find(" here\nINFO: last\n"));
  return outcome;
}

// Without the temporary, another name of the file.
void save_alone(const std::string& file, int number) {
  list_of(file, number).save();
  EXPECT_EQ(0, unlink((file + ".tmp").c_str()));
}

void nothing(const std::string&) {}

void saved_once(const std::string& file) { list_of(file, 1).save(); }

void saved_alone(const std::string& file) { save_alone(file, 1); }

// What a fresh load finds.
std::string found(const std::string& file) try {
  PropertyList list(file);
  list.load();
  return list.getProperties().empty() ? "none" : "found " + std::to_string(list.intForKey("n"));
} catch (const util::malformed_property_list&) {
  return "lost";
}

// Saves 2 after that; tells which list is found then.
Round saving(void (*before)(const std::string& file),
             void (PropertyList::*save)() = &PropertyList::save) {
  return [before, save](Disturbance& disturbance) {
    const std::string x = disturbance.dir.file("x");
    before(x);
    PropertyList list = list_of(x, 2);
    std::string outcome = disturbance([&] { (list.*save)(); });
    outcome += ", " + found(x);
    list_of(x, 4).save();
    EXPECT_EQ("found 4", found(x));
    return outcome;
  };
}

class Count : public util::EventLoop {
 public:
  explicit Count(int& rounds) : rounds_(rounds) {}

  void runLoop(util::utime_t) override { ++rounds_; }

 private:
  int& rounds_;
};

const Calls kCallsOfSave = {"localtime_r", "strftime", "unlink", "stat",  "link",
                            "fopen",       "fwrite",   "fflush", "fclose"};
const Calls kCallsOfSaveDurably = {"localtime_r", "strftime", "open",  "stat",   "write", "fchown",
                                   "fchmod",      "fsync",    "close", "unlink", "link",  "rename"};

}  // namespace

// ---- logging ----

TEST(Faults, OfLoggingCostNoMoreThanWhatTheCallWrites) {
  EXPECT_EQ((Outcomes{
                {"fclose",      "done"                         },
                {"fflush",      "done"                         },
                {"fopen",       "done"                         },
                {"fprintf",     "done"                         },
                {"fputc",       "done"                         },
                {"localtime_r", "done"                         },
                {"rename 1",    "done"                         },
                {"rename 2",    "done, lost old"               },
                {"rename 3",    "done, lost first, lost second"},
                {"setvbuf",     "done"                         },
                {"stat",        "done"                         },
                {"strftime",    "done"                         },
                {"time",        "done"                         },
                {"unlink",      "done"                         },
                {"vfprintf 1",  "done, lost first"             },
                {"vfprintf 2",  "done, lost second"            },
                {"vfprintf 3",  "done, lost third"             },
  }),
            outcomes({"fopen", "fclose", "fflush", "setvbuf", "fprintf", "vfprintf", "fputc",
                      "rename", "unlink", "stat", "time", "localtime_r", "strftime"},
                     [](Disturbance& disturbance) {
                       return log_and_rotate(disturbance, 1100, 1700);  // written piece by piece
                     }));
}

// Without a rotation, whose notice compilers write by fwrite() too.
TEST(Faults, OfLoggingEntriesWrittenByOneCallCostNoMoreThanTheEntry) {
  EXPECT_EQ((Outcomes{
                {"fwrite 1", "done, lost first" },
                {"fwrite 2", "done, lost second"},
                {"fwrite 3", "done, lost third" },
  }),
            outcomes("fwrite",
                     [](Disturbance& disturbance) { return log_and_rotate(disturbance, 0, 0); }));
}

TEST(Faults, OfLoggingToTheSystemLogCostNoMoreThanTheRecord) {
  EXPECT_EQ((Outcomes{
                {"localtime_r", "done, records 2"},
                {"strftime",    "done, records 2"},
                {"syslog",      "done, records 1"},
                {"time",        "done, records 2"},
  }),
            outcomes({"time", "localtime_r", "strftime", "syslog"}, [](Disturbance& disturbance) {
              const FrozenClock clock(fresh_second());
              const SyslogCapture log;
              util::syslog_publisher to;
              const std::string outcome = disturbance([&to] { publish(to, "%s", "text"); });
              return outcome + ", records " + std::to_string(log.records().size());
            }));
}

// ---- property lists ----

TEST(Faults, OfAFirstSave) {
  EXPECT_EQ((Outcomes{
                {"fclose",      "Couldn't save x.tmp: %, none"    },
                {"fflush",      "Couldn't save x.tmp: %, none"    },
                {"fopen",       "Couldn't save x.tmp: %, none"    },
                {"fwrite",      "Couldn't save x.tmp: %, none"    },
                {"link",        "x: %, none"                      },
                {"localtime_r", "x: can't encode value type, none"},
                {"strftime",    "x: can't encode value type, none"},
                {"stat",        "done, found 2"                   },
                {"unlink",      "done, found 2"                   },
  }),
            outcomes(kCallsOfSave, saving(nothing)));
}

// File, temporary and backup are one file, written in place: there is no way back from fopen() on.
// What fwrite() costs depends on the piece of the text.
TEST(Faults, OfASecondSave) {
  EXPECT_EQ(
      (Outcomes{
          {"fclose",      "Couldn't save x.tmp: %, found 2"    },
          {"fflush",      "Couldn't save x.tmp: %, found 2"    },
          {"fopen",       "Couldn't save x.tmp: %, found 1"    },
          {"link 1",      "x: %, found 1"                      },
          {"link 2",      "x: %, found 2"                      },
          {"localtime_r", "x: can't encode value type, found 1"},
          {"strftime",    "x: can't encode value type, found 1"},
          {"stat",        "x: File exists, found 2"            },
          {"unlink 1",    "done, found 2"                      },
          {"unlink 2",    "x: %, found 2"                      },
  }),
      outcomes({"localtime_r", "strftime", "unlink", "stat", "link", "fopen", "fflush", "fclose"},
               saving(saved_once)));
}

// The file has no other name, as saveDurably() leaves it: what fails costs nothing.
TEST(Faults, OfASaveOfAFileByItself) {
  EXPECT_EQ((Outcomes{
                {"fclose",      "Couldn't save x.tmp: %, found 1"    },
                {"fflush",      "Couldn't save x.tmp: %, found 1"    },
                {"fopen",       "Couldn't save x.tmp: %, found 1"    },
                {"fwrite",      "Couldn't save x.tmp: %, found 1"    },
                {"link",        "x: %, found 1"                      },
                {"localtime_r", "x: can't encode value type, found 1"},
                {"strftime",    "x: can't encode value type, found 1"},
                {"stat",        "x: File exists, found 1"            },
                {"unlink 1",    "done, found 2"                      },
                {"unlink 2",    "x: %, found 1"                      },
  }),
            outcomes(kCallsOfSave, saving(saved_alone)));
}

TEST(Faults, OfAFirstDurableSave) {
  EXPECT_EQ((Outcomes{
                {"close 1",     "x: %, none"                                            },
                {"close 2",     "done, found 2"                                         },
                {"fsync 1",     "x: %, none"                                            },
                {"fsync 2",     "x: %, found 2"                                         },
                {"write",       "x: %, none"                                            },
                {"localtime_r", "x: an instant without local time cannot be saved, none"},
                {"open",        "x: %, none"                                            },
                {"rename",      "x: %, none"                                            },
                {"stat",        "x: %, none"                                            },
                {"strftime",    "x: an instant without local time cannot be saved, none"},
                {"unlink",      "x: %, none"                                            },
  }),
            outcomes(kCallsOfSaveDurably, saving(nothing, &PropertyList::saveDurably)));
}

// Whatever could not be done to the new file or its name leaves the old one, and what could not be
// done afterwards leaves the new one.
TEST(Faults, OfADurableSave) {
  EXPECT_EQ((Outcomes{
                {"close 1",     "x: %, found 1"                                            },
                {"close 2",     "done, found 2"                                            },
                {"fchmod",      "x: %, found 1"                                            },
                {"fchown",      "x: %, found 1"                                            },
                {"fsync 1",     "x: %, found 1"                                            },
                {"fsync 2",     "x: %, found 2"                                            },
                {"write",       "x: %, found 1"                                            },
                {"link",        "x: %, found 1"                                            },
                {"localtime_r", "x: an instant without local time cannot be saved, found 1"},
                {"open",        "x: %, found 1"                                            },
                {"rename",      "x: %, found 1"                                            },
                {"stat",        "x: %, found 1"                                            },
                {"strftime",    "x: an instant without local time cannot be saved, found 1"},
                {"unlink 1",    "x: %, found 1"                                            },
                {"unlink 2",    "done, found 2"                                            },
  }),
            outcomes(kCallsOfSaveDurably, saving(saved_alone, &PropertyList::saveDurably)));
}

// Whatever hides the file from stat() makes the backup the list.
TEST(Faults, OfALoad) {
  EXPECT_EQ((Outcomes{
                {"fclose",   "done, holds 2"             },
                {"fopen",    "x: load failed, holds 3"   },
                {"fread",    "x: load failed, holds 3"   },
                {"fstat",    "done, holds 2"             },
                {"mktime",   "done, holds 2"             },
                {"stat",     "done, holds 1"             },
                {"strptime", "x: malformed date, holds 3"},
  }),
            outcomes({"stat", "fopen", "fstat", "fread", "fclose", "strptime", "mktime"},
                     [](Disturbance& disturbance) {
                       const std::string x = disturbance.dir.file("x");
                       save_alone(x, 2);
                       save_alone(x + "~", 1);
                       PropertyList list(x);
                       list["n"] = 3;
                       const std::string outcome = disturbance([&list] { list.load(); });
                       return outcome + ", holds " + std::to_string(list.intForKey("n"));
                     }));
}

// ---- the board ----

TEST(Faults, OfReadingAConfiguration) {
  EXPECT_EQ((Outcomes{
                {"fclose", "done"                     },
                {"fopen",  "Couldn't load conf.xml: %"},
                {"fread",  "Couldn't load conf.xml: %"},
                {"fstat",  "done"                     },
  }),
            outcomes({"fopen", "fclose", "fstat", "fread"}, [](Disturbance& disturbance) {
              const std::string conf = disturbance.dir.file("conf.xml");
              write_file(conf, read_file(NASUTIL_SOURCE_DIR "/examples/appliance/nas_conf_db.xml"));
              return disturbance([&conf] { const util::NASConfDB database(conf); });
            }));
}

TEST(Faults, OfListingInterfaces) {
  EXPECT_EQ((Outcomes{
                {"close",      "done"},
                {"getifaddrs", "%"   },
                {"ioctl",      "%"   },
                {"socket",     "%"   },
  }),
            outcomes({"getifaddrs", "socket", "ioctl", "close"}, [](Disturbance& disturbance) {
              FakeInterfaces fake{
                  {"eth0", "10.0.0.1" },
                  {"lo",   "127.0.0.1"},
              };
              fake.hardware = {
                  {"eth0", "\x01\x02\x03\x04\x05\x06"},
                  {"lo",   "\x01\x02\x03\x04\x05\x06"}
              };
              const std::string outcome = disturbance(
                  [] { EXPECT_EQ(2U, util::NetworkInterface::get_interfaces().size()); });
              EXPECT_EQ(0, fake.open_lists());
              return outcome;
            }));
}

TEST(Faults, OfRefreshingThePins) {
  EXPECT_EQ((Outcomes{
                {"fclose",  "done, high"},
                {"fopen",   "done, low" },
                {"fprintf", "done, high"},
                {"fscanf",  "done, low" },
  }),
            outcomes({"fopen", "fprintf", "fscanf", "fclose"}, [](Disturbance& disturbance) {
              const TempDir& dir = disturbance.dir;
              const Redirect redirect("/proc/resource_dump", dir.file("dump"));
              Recorder recorder({"fopen"});
              recorder.before = [&dir](const std::string& call) {
                if (call == "fopen /proc/resource_dump r") dir.write("dump", "10");
              };
              util::ZEB_GPIO board;
              std::string outcome = disturbance([&board] { board.refresh(); });
              outcome += board.getPin(util::ZEB_GPIO::DriveCount) ? ", high" : ", low";
              board.refresh();
              EXPECT_TRUE(board.getPin(util::ZEB_GPIO::DriveCount));
              return outcome;
            }));
}

// ---- the loop ----

// A time that cannot be read is 0. Loops run and the pass ends; an event waits for the next one.
TEST(Faults, OfALoopPass) {
  EXPECT_EQ((Outcomes{
                {"gettimeofday 1", "done, rounds 1, events 1"},
                {"gettimeofday 2", "done, rounds 1, events 1"},
                {"gettimeofday 3", "done, rounds 1, events 1"},
                {"gettimeofday 4", "done, rounds 1, events 1"},
                {"gettimeofday 5", "done, rounds 1, events 0"},
                {"gettimeofday 6", "done, rounds 1, events 1"},
                {"gettimeofday 7", "done, rounds 1, events 1"},
                {"nanosleep",      "done, rounds 1, events 1"},
  }),
            outcomes({"gettimeofday", "nanosleep"}, [](Disturbance& disturbance) {
              FrozenClock clock;
              int rounds = 0;
              int events = 0;
              Count work(rounds);
              util::SuperLoop loop;
              loop.addEvent(&work);
              loop.addEvent(new Happen(events), util::Timer(0));
              clock.advance(1);
              std::string outcome = disturbance([&loop] { loop.runLoop(100); });
              outcome +=
                  ", rounds " + std::to_string(rounds) + ", events " + std::to_string(events);
              loop.runLoop(100);
              EXPECT_EQ(2, rounds);
              EXPECT_EQ(1, events);
              return outcome;
            }));
}
