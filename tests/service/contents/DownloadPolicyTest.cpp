#include "service/contents/DownloadPolicy.h"

#include <signal.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/Gate.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::test {
namespace {

namespace fs = std::filesystem;

// A /proc of the test's own making.
class DownloadPolicyTest : public testing::Test {
 protected:
  struct Program {
    std::string executable;  // a path; empty: not readable
    std::string command;
    std::vector<std::string> arguments;
    pid_t parent = 1;
    int started = 0;
  };

  void run(pid_t pid, const Program& program) {
    const std::string folder = proc_.file(std::to_string(pid));
    fs::remove_all(folder);
    fs::create_directory(folder);
    writeFile(folder + "/status", "Name:\tx\nTgid:\t" + std::to_string(pid) + "\n");
    writeFile(folder + "/stat", std::to_string(pid) + " (" + program.command + ") S " +
                                    std::to_string(program.parent) +
                                    " 1 1 0 -1 4194304 1 1 1 1 1 1 1 1 20 0 1 0 " +
                                    std::to_string(program.started) + " 1000 100 0\n");
    std::string line;
    for (const std::string& argument : program.arguments)
      line += argument + '\0';
    writeFile(folder + "/cmdline", line);
    if (!program.executable.empty()) fs::create_symlink(program.executable, folder + "/exe");
  }

  void thread(pid_t number, pid_t leader, const std::string& name) {
    run(number, {"/usr/bin/x", name, {}, 1, 100});
    writeFile(proc_.file(std::to_string(number) + "/status"),
              "Name:\t" + name + "\nTgid:\t" + std::to_string(leader) + "\n");
  }

  void setList(const std::string& lines) {
    // A new file, so that its stamp differs however quick the test is.
    writeFile(list() + ".new" + std::to_string(++written_), lines);
    fs::rename(list() + ".new" + std::to_string(written_), list());
  }

  std::string list() const { return home_.file("no-download"); }

  // Asks about a process of its own for each call, unless the program says when it started.
  bool mayDownload(Program program) {
    if (program.started == 0) program.started = ++started_;
    run(500, program);
    return policy_.mayDownload(500);
  }

  TemporaryDirectory proc_;
  TemporaryDirectory home_;
  int written_ = 0;
  int started_ = 1000;
  DownloadPolicy policy_{list(), proc_.path()};
};

TEST_F(DownloadPolicyTest, OrdinaryProgramsMay) {
  EXPECT_TRUE(mayDownload({"/usr/bin/cat", "cat", {"cat", "file"}}));
  EXPECT_TRUE(mayDownload({"/usr/bin/python3.11", "python3", {"python3", "tool.py"}}));
}

TEST_F(DownloadPolicyTest, TheListedOnesMayNot) {
  EXPECT_FALSE(mayDownload({"/usr/lib/tumbler-1/tumblerd", "tumblerd", {"tumblerd"}}));
  EXPECT_FALSE(mayDownload({"/usr/bin/gdk-pixbuf-thumbnailer", "gdk-pixbuf-thum", {}}));
  EXPECT_FALSE(mayDownload({"/usr/bin/ffmpegthumbnailer", "ffmpegthumbnail", {}}));
  EXPECT_FALSE(mayDownload({"/usr/libexec/tracker-extract-3", "tracker-extract", {}}));
  EXPECT_FALSE(mayDownload({"/usr/libexec/localsearch-3", "localsearch-3", {}}));
  EXPECT_FALSE(mayDownload({"/usr/bin/baloo_file_extractor", "baloo_file_extr", {}}));
  EXPECT_FALSE(mayDownload({"/usr/sbin/updatedb.plocate", "updatedb.plocat", {}}));
}

TEST_F(DownloadPolicyTest, NothingKnownSpeaksForTheCaller) {
  EXPECT_TRUE(policy_.mayDownload(0));
  EXPECT_TRUE(policy_.mayDownload(-1));
  EXPECT_TRUE(policy_.mayDownload(77));
  fs::create_directory(proc_.file("78"));
  writeFile(proc_.file("78/stat"), "78 (cut");
  EXPECT_TRUE(policy_.mayDownload(78));
}

TEST_F(DownloadPolicyTest, ACutCommandIsEnoughWhereTheFileIsHidden) {
  EXPECT_FALSE(mayDownload({"", "gdk-pixbuf-thum", {"/usr/bin/gdk-pixbuf-thumbnailer", "-s"}}));
  EXPECT_FALSE(mayDownload({"", "tumblerd", {}}));
  setList("my-very-long-program-name\n");
  EXPECT_FALSE(mayDownload({"", "my-very-long-pr", {}}));
}

TEST_F(DownloadPolicyTest, ScriptsAreKnownByTheirOwnName) {
  EXPECT_FALSE(mayDownload({"/usr/bin/python3.11",
                            "comics-thumbnai",
                            {"/usr/bin/python3", "/usr/bin/comics-thumbnailer", "x"}}));
}

TEST_F(DownloadPolicyTest, AnUpgradedProgramIsStillTheSame) {
  EXPECT_FALSE(mayDownload({"/usr/lib/tumbler-1/tumblerd (deleted)", "pool", {}}));
}

TEST_F(DownloadPolicyTest, ParenthesesInACommandAreReadRight) {
  EXPECT_TRUE(mayDownload({"/opt/a", "a) S 1 (b", {}}));
  EXPECT_FALSE(mayDownload({"/opt/a", "x) (thumbnailer", {}}));
}

TEST_F(DownloadPolicyTest, AWorkerIsMeantOnlyWithItsArgument) {
  EXPECT_FALSE(
      mayDownload({"/usr/lib/kf5/kioslave5",
                   "kioslave5",
                   {"kioslave5", "/usr/lib/qt5/plugins/kf5/kio/thumbnail.so", "thumbnail"}}));
  EXPECT_TRUE(mayDownload({"/usr/lib/kf5/kioslave5",
                           "kioslave5",
                           {"kioslave5", "/usr/lib/qt5/plugins/kf5/kio/file.so"}}));
}

TEST_F(DownloadPolicyTest, WhatAThumbnailerStartsMayNot) {
  run(400, {"/usr/bin/bash", "raw-thumbnailer", {"/bin/bash", "/usr/bin/raw-thumbnailer"}, 1});
  run(401, {"/usr/bin/bwrap", "bwrap", {"bwrap"}, 400});
  run(402, {"/usr/bin/bwrap", "bwrap", {"bwrap"}, 401});
  EXPECT_FALSE(mayDownload({"/usr/bin/dcraw", "dcraw", {"dcraw"}, 402}));
}

TEST_F(DownloadPolicyTest, FarAncestorsDoNotCount) {
  run(400, {"/usr/lib/tumbler-1/tumblerd", "tumblerd", {}, 1});
  for (pid_t pid = 401; pid <= 404; ++pid)
    run(pid, {"/bin/sh", "sh", {}, pid - 1});
  EXPECT_TRUE(mayDownload({"/usr/bin/cat", "cat", {}, 404}));
}

TEST_F(DownloadPolicyTest, ALoopOfParentsEnds) {
  run(400, {"/bin/sh", "sh", {}, 500});
  EXPECT_TRUE(mayDownload({"/bin/sh", "sh", {}, 400}));
}

TEST_F(DownloadPolicyTest, AThreadIsItsProcess) {
  run(600, {"/usr/lib/tumbler-1/tumblerd", "tumblerd", {}});
  thread(601, 600, "pool-0");
  EXPECT_FALSE(policy_.mayDownload(601));
  run(700, {"/usr/bin/cat", "cat", {}});
  thread(701, 700, "tumblerd");
  EXPECT_TRUE(policy_.mayDownload(701));
}

TEST_F(DownloadPolicyTest, TheUsersFileAddsAndTakesAway) {
  setList("# mine\n\n  my-indexer  \r\n!tumblerd\nworker *.plugin\nno-new-line-at-end");
  EXPECT_FALSE(mayDownload({"/usr/bin/my-indexer", "my-indexer", {}}));
  EXPECT_TRUE(mayDownload({"/usr/lib/tumbler-1/tumblerd", "tumblerd", {}}));
  EXPECT_FALSE(mayDownload({"/opt/worker", "worker", {"worker", "/x/index.plugin"}}));
  EXPECT_TRUE(mayDownload({"/opt/worker", "worker", {"worker", "/x.plugin/other"}}));
  EXPECT_FALSE(mayDownload({"/opt/no-new-line-at-end", "no-new-line-at", {}}));
  EXPECT_FALSE(mayDownload({"/usr/bin/evince-thumbnailer", "evince-thumbnai", {}}));
}

TEST_F(DownloadPolicyTest, OneProgramIsTakenOffAWildcard) {
  setList("!evince-thumbnailer\n");
  EXPECT_TRUE(mayDownload({"/usr/bin/evince-thumbnailer", "evince-thumbnai", {}}));
  EXPECT_FALSE(mayDownload({"/usr/bin/totem-video-thumbnailer", "totem-video-thu", {}}));
}

TEST_F(DownloadPolicyTest, AChangedListCountsAtOnce) {
  const Program program{"/usr/bin/reader", "reader", {}, 1, 100};
  EXPECT_TRUE(mayDownload(program));
  setList("reader\n");
  EXPECT_FALSE(mayDownload(program));
  fs::remove(list());
  EXPECT_TRUE(mayDownload(program));
}

TEST_F(DownloadPolicyTest, AnotherProcessUnderTheSameNumberIsLookedAtAnew) {
  EXPECT_TRUE(mayDownload({"/usr/bin/cat", "cat", {}, 1, 100}));
  EXPECT_FALSE(mayDownload({"/usr/lib/tumbler-1/tumblerd", "tumblerd", {}, 1, 200}));
}

TEST_F(DownloadPolicyTest, AProcessThatBecomesAnotherProgramIsLookedAtAnew) {
  EXPECT_TRUE(mayDownload({"/usr/bin/bash", "bash", {}, 1, 100}));
  EXPECT_FALSE(mayDownload({"/usr/lib/tumbler-1/tumblerd", "tumblerd", {}, 1, 100}));
}

TEST_F(DownloadPolicyTest, ADecisionIsKept) {
  run(400, {"/usr/lib/tumbler-1/tumblerd", "tumblerd", {}});
  const Program child{"/usr/bin/ffmpeg", "ffmpeg", {}, 400, 100};
  EXPECT_FALSE(mayDownload(child));
  fs::remove_all(proc_.file("400"));
  EXPECT_FALSE(mayDownload(child));
}

// A program under another name, as long as the object lives.
class RunningProgram {
 public:
  explicit RunningProgram(const std::string& path) {
    std::string name = path;
    std::string duration = "3600";
    std::vector<char*> arguments = {name.data(), duration.data(), nullptr};
    posix_spawn(&pid_, path.c_str(), nullptr, nullptr, arguments.data(), environ);
  }
  ~RunningProgram() {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  RunningProgram(const RunningProgram&) = delete;
  RunningProgram& operator=(const RunningProgram&) = delete;

  pid_t pid() const { return pid_; }

 private:
  pid_t pid_ = -1;
};

TEST(DownloadPolicyOnThisSystemTest, KnowsARunningProgram) {
  const TemporaryDirectory folder;
  fs::copy_file("/bin/sleep", folder.file("image-thumbnailer"));
  fs::copy_file("/bin/sleep", folder.file("reader"));
  const RunningProgram thumbnailer(folder.file("image-thumbnailer"));
  const RunningProgram reader(folder.file("reader"));
  DownloadPolicy policy("");
  EXPECT_FALSE(policy.mayDownload(thumbnailer.pid()));
  EXPECT_TRUE(policy.mayDownload(reader.pid()));
  EXPECT_TRUE(policy.mayDownload(getpid()));
}

TEST(DownloadPolicyOnThisSystemTest, AThreadsNameDoesNotCount) {
  DownloadPolicy policy("");
  pid_t thread = 0;
  Gate named;
  Gate done;
  std::thread worker([&] {
    prctl(PR_SET_NAME, "tumblerd");
    thread = gettid();
    named.open();
    done.wait();
  });
  const bool ready = named.wait();
  EXPECT_TRUE(ready && policy.mayDownload(thread));
  done.open();
  worker.join();
}

}  // namespace
}  // namespace tulo::test
