// SPDX-License-Identifier: MIT-0
// The daemon as its service manager and its clients see it.
#include <service/ControlSocket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>

#include <gtest/gtest.h>

namespace {

// A daemon that keeps all its files in a folder of the test.
class DaemonTest : public testing::Test {
 protected:
  DaemonTest() {
    char name[] = "/tmp/daemon_test.XXXXXX";
    folder_ = mkdtemp(name);
  }
  ~DaemonTest() override {
    if (process_ > 0) end_by(SIGKILL);
    std::filesystem::remove_all(folder_);
  }

  // Returns once it answers.
  void start(const char* program = DAEMON) {
    process_ = fork();
    if (process_ == 0) {
      if (chdir(folder_.c_str()) == 0) execl(program, program, "--in", ".", nullptr);
      _exit(127);
    }
    for (int attempt = 0; attempt < 1000; ++attempt) try {
        ask("status");
        return;
      } catch (const std::system_error&) {
        usleep(10000);
      }
    FAIL() << program << " does not answer";
  }

  // The status as waitpid() gives it.
  int end_by(int signal) {
    int status = -1;
    kill(process_, signal);
    waitpid(process_, &status, 0);
    process_ = 0;
    return status;
  }

  std::string ask(const std::string& request) const {
    return service::ask(folder_ + "/control", request, 5000);
  }

  std::string log() const {
    for (const auto& entry : std::filesystem::directory_iterator(folder_)) {
      if (entry.path().extension() == ".log") return read(entry.path());
    }
    return "no log";
  }

  static std::string read(const std::string& file) {
    std::ifstream in(file);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  void write(const std::string& name, const std::string& text) const {
    std::ofstream(folder_ + "/" + name) << text;
  }

  std::string folder_;
  pid_t process_ = 0;
};

}  // namespace

TEST_F(DaemonTest, LogsItsStartAndItsEnd) {
  start();
  EXPECT_EQ(0, end_by(SIGTERM));
  EXPECT_NE(std::string::npos, log().find("INFO: started\n"));
  EXPECT_NE(std::string::npos, log().find("INFO: stopped\n"));
}

TEST_F(DaemonTest, SaysWhatItCanBeAsked) {
  start();
  try {
    ask("open sesame");
    FAIL() << "not refused";
  } catch (const service::Refused& refusal) {
    EXPECT_STREQ("status, or greet TEXT", refusal.what());
  }
}

TEST_F(DaemonTest, KeepsAChangeThoughItIsKilled) {
  start();
  EXPECT_EQ("from now on: Good morning\n", ask("greet Good morning"));
  end_by(SIGKILL);
  start();
  EXPECT_EQ("greets with: Good morning\n", ask("status"));
}

TEST_F(DaemonTest, TakesUpChangedSettingsOnHangup) {
  start();
  write("settings.plist", "<plist><dict><key>greeting</key><string>Moin</string></dict></plist>");
  kill(process_, SIGHUP);
  while (ask("status") != "greets with: Moin\n") usleep(10000);  // until the test times out
}

TEST_F(DaemonTest, RefusesAChangeThatDoesNotFitOnTheDisk) {
  start(FAILING_DAEMON);
  write("full", "");
  EXPECT_THROW(ask("greet Good night"), service::Refused);
  EXPECT_EQ("greets with: Hello\n", ask("status"));
  std::filesystem::remove(folder_ + "/full");
  EXPECT_EQ("from now on: Good night\n", ask("greet Good night"));
}
