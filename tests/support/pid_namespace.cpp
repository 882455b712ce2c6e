#include "support/pid_namespace.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#ifndef _WIN32
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

namespace testing_support {
namespace {

constexpr const char* kMarkVariable = "TVEJECT_TEST_PIDNS";

// Says why the test runs without a namespace; false, for the caller to return.
bool SayNoNamespace(const char* why) {
  const auto* test = testing::UnitTest::GetInstance()->current_test_info();
  std::printf(
      "[   NOTE   ] %s.%s: no PID namespace (%s); it signals only programs it started "
      "itself, from a folder of its own\n",
      test->test_suite_name(), test->name(), why);
  std::fflush(stdout);
  return false;
}

}  // namespace

#ifdef _WIN32

bool RunInOwnPidNamespace() {
  return SayNoNamespace("Windows has none");
}

#else

bool RunInOwnPidNamespace() {
  if (const char* mark = std::getenv(kMarkVariable)) {
    // Inside: tell the outer run that the namespace was made and the test started.
    if (FILE* f = std::fopen(mark, "w")) std::fclose(f);
    return false;
  }
  std::error_code error;
  const std::string self = std::filesystem::read_symlink("/proc/self/exe", error).string();
  if (self.empty()) return SayNoNamespace("the test program cannot be found");
  const auto* test = testing::UnitTest::GetInstance()->current_test_info();
  const std::string filter =
      std::string("--gtest_filter=") + test->test_suite_name() + "." + test->name();
  const std::string mark = "/tmp/tveject_pidns_" + std::to_string(getpid());

  // Root makes the namespace directly; anyone else needs a user namespace to hold it.
  const std::vector<std::vector<const char*> > ways = {
      {"unshare", "--pid", "--fork", "--kill-child", "--mount-proc"},
      {"unshare", "--user", "--map-root-user", "--pid", "--fork", "--kill-child", "--mount-proc"}};
  for (std::size_t way = geteuid() == 0 ? 0 : 1; way < ways.size(); ++way) {
    std::remove(mark.c_str());
    std::fflush(stdout);
    const pid_t child = fork();
    if (child < 0) break;
    if (child == 0) {
      // A session of its own: a fault that signals "the process group" stays inside the test;
      // and the namespace goes when this test process does.
      setsid();
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      setenv(kMarkVariable, mark.c_str(), 1);
      std::vector<const char*> argv = ways[way];
      argv.insert(argv.end(), {self.c_str(), filter.c_str(), nullptr});
      execvp(argv[0], const_cast<char* const*>(argv.data()));
      _exit(127);
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
    }
    if (access(mark.c_str(), F_OK) == 0) {
      std::remove(mark.c_str());
      EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0)
          << "the test failed in its own PID namespace (wait status " << status << ")";
      return true;
    }
  }
  return SayNoNamespace("unshare could not make one");
}

#endif

}  // namespace testing_support
