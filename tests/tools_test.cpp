// The programs pps and sloginfo, and what the bench's programs share.
#include <fcntl.h>
#include <signal.h>
#include <sys/slog.h>
#include <unistd.h>

#include <cstdio>
#include <thread>

#include "qnx/child_process.h"
#include "qnx/slog_ring.h"
#include "support/fixture.h"
#include "support/raw_client.h"
#include "tools/pps_object.h"
#include "tools/program.h"

namespace support {
namespace {

const char kObject[] = "/pps/zelmar/setting/systeminfo";

TEST(Tools, EscapeKeepsTextAndShowsTheRest) {
  EXPECT_EQ(tools::Escape("plain \xC3\xA9 \xE2\x82\xAC \xF0\x9F\x9A\x97"),
            "plain \xC3\xA9 \xE2\x82\xAC \xF0\x9F\x9A\x97");
  EXPECT_EQ(tools::Escape("a\n\t\\\x1B[0m\x7F"), "a\\n\\t\\\\\\x1B[0m\\x7F");
  EXPECT_EQ(tools::Escape(std::string("a\0b", 3)), "a\\x00b");
  // Overlong, cut, surrogate, beyond the last character, a lone continuation, a C1 control.
  EXPECT_EQ(tools::Escape("\xC0\xAF"), "\\xC0\\xAF");
  EXPECT_EQ(tools::Escape("\xE2\x82"), "\\xE2\\x82");
  EXPECT_EQ(tools::Escape("\xED\xA0\x80"), "\\xED\\xA0\\x80");
  EXPECT_EQ(tools::Escape("\xF4\x90\x80\x80"), "\\xF4\\x90\\x80\\x80");
  EXPECT_EQ(tools::Escape("\x80"), "\\x80");
  EXPECT_EQ(tools::Escape("\xC2\x9B"), "\\xC2\\x9B");
}

class PpsToolTest : public UnitTest {
 protected:
  // Runs `pps` and returns its exit status.
  int Pps(const std::vector<std::string>& arguments) {
    program_ = std::make_unique<Program>(root_, "pps", arguments);
    return program_->Wait();
  }
  void ExpectPrints(const std::vector<std::string>& arguments, const std::string& output) {
    EXPECT_EQ(Pps(arguments), 0) << Err();
    EXPECT_EQ(Out(), output);
  }
  void ExpectFails(const std::vector<std::string>& arguments, const std::string& reason) {
    EXPECT_EQ(Pps(arguments), 1);
    EXPECT_PRED2(Contains, Err(), reason);
  }
  std::string Out() const { return program_->Output(); }
  std::string Err() const { return program_->Errors(); }

  std::unique_ptr<Program> program_;
};

TEST_F(PpsToolTest, SetsEveryEncodingAndGetsItBack) {
  EXPECT_EQ(
      Pps({"set", "zelmar/setting/systeminfo", "name=Car: 7", "n:n:-5", "b:b:true", "c:c:a\\tb",
           "json:json:{\"a\":1}", "text::x:y=z", "lines=a\nb", "[n]brief=Car 8"}),
      0)
      << Err();
  EXPECT_EQ(Attribute(kObject, "name"), ":Car: 7");
  EXPECT_EQ(Attribute(kObject, "n"), "n:-5");
  EXPECT_EQ(Attribute(kObject, "[n]brief"), ":Car 8");
  ExpectPrints({"get", kObject, "brief"}, "Car 8\n");
  EXPECT_EQ(Attribute(kObject, "text"), ":x:y=z");
  EXPECT_EQ(Attribute(kObject, "lines"), "c:a\\nb");
  for (const char* path : {"/pps/zelmar/setting/systeminfo", "/zelmar/setting/systeminfo",
                           "zelmar/setting/systeminfo/"}) {
    ExpectPrints({"get", path, "name"}, "Car: 7\n");
  }
  ExpectPrints({"get", kObject, "c"}, "a\tb\n");
  ExpectPrints({"get", kObject, "lines"}, "a\nb\n");
  ExpectPrints({"get", kObject, "json"}, "{\"a\":1}\n");
  ExpectPrints({"get", kObject}, ReadObject(kObject).value_or("none"));
  const std::string value(100000, 'x');
  WriteObject(kObject, "big::" + value);
  ExpectPrints({"get", kObject, "big"}, value + "\n");
  // A second write keeps the others, -t removes them.
  EXPECT_EQ(Pps({"set", kObject, "n:n:6"}), 0);
  EXPECT_EQ(Attribute(kObject, "b"), "b:true");
  EXPECT_EQ(Pps({"set", "-t", kObject, "n:n:7"}), 0);
  EXPECT_EQ(ReadObject(kObject), "@systeminfo\nn:n:7\n");
}

TEST_F(PpsToolTest, RefusesWhatIsNoAttributeAndWritesNothing) {
  WriteObject(kObject, "n:n:1");
  const std::pair<const char*, const char*> wrong[] = {
      {"n", "is neither"},
      {"n:n:x", "is not a number"},
      {"n:n:1 2", "is not a number"},
      {"n:n:[1]", "is not a number"},
      {"n:json:", "well-formed"},
      {"n:n:", "is not a number"},
      {"n:b:yes", "is not true or false"},
      {"n:json:{", "well-formed"},
      {"n:q:1", "unknown encoding"},
      {"n:n", "no second ':'"},
      {"=x", "no usable attribute name"},
      {":n:1", "no usable"},
      {"@x=1", "no usable"},
      {"-n:n:2", "no usable"},
      {"[n]-n:n:2", "no usable attribute name"},
      {"[n][n]n:n:2", "no usable attribute name"},
      {"[nm::x", "no usable [options]"},
      {"[:]m::x", "no usable [options]"},
      {"n::a\nm::b", "a line end in its value"},
  };
  for (const auto& [argument, reason] : wrong) {
    EXPECT_EQ(Pps({"set", kObject, "m::new", argument}), 2) << argument;
    EXPECT_PRED2(Contains, Err(), reason) << argument << ": " << Err();
  }
  EXPECT_EQ(ReadObject(kObject), "@systeminfo\nn:n:1\n");
}

TEST_F(PpsToolTest, ListsAndRemoves) {
  WriteObject(kObject, "a::1\nb::2\nab::3");
  WriteObject("/pps/zelmar/key", "x::1");
  ExpectPrints({"ls"}, "zelmar/\n");
  ExpectPrints({"ls", "/pps/zelmar"}, "key\nsetting/\n");
  ExpectPrints({"ls", "zelmar/key"}, "/pps/zelmar/key\n");
  ExpectPrints({"ls", "-R"}, "zelmar/\nzelmar/key\nzelmar/setting/\nzelmar/setting/systeminfo\n");
  ExpectPrints({"ls", "zelmar/key", "-R"}, "/pps/zelmar/key\n");
  ExpectFails({"ls", "nowhere"}, "No such file or directory");

  EXPECT_EQ(Pps({"rm", kObject, "b", "a"}), 0) << Err();
  EXPECT_EQ(ReadObject(kObject), "@systeminfo\nab::3\n");
  EXPECT_EQ(Pps({"rm", kObject, "ab", "b"}), 1);
  EXPECT_EQ(ReadObject(kObject), "@systeminfo\nab::3\n") << "all or nothing";
  EXPECT_EQ(Pps({"rm", kObject}), 0) << Err();
  EXPECT_EQ(ReadObject(kObject), std::nullopt);
  EXPECT_EQ(Pps({"rm", kObject}), 1);
  EXPECT_EQ(Pps({"rm", kObject, "a"}), 1);
  EXPECT_EQ(ReadObject(kObject), std::nullopt) << "not created by asking";
  EXPECT_EQ(Pps({"get", kObject}), 1);
  ExpectFails({"get", "zelmar/key", "y"}, "has no attribute 'y'");
}

TEST_F(PpsToolTest, WatchTellsChangesUntilInterrupted) {
  WriteObject(kObject, "a::1\nb::2");
  Program watch(root_, "pps", {"watch", "zelmar/setting/systeminfo"});
  EXPECT_TRUE(Eventually([&] { return watch.Output().find("b::2\n") != std::string::npos; }));
  const std::string first = watch.Output();
  WriteObject(kObject, "a::3");
  EXPECT_TRUE(Eventually([&] { return watch.Output().size() > first.size(); }));
  const std::string change = watch.Output().substr(first.size());
  EXPECT_PRED2(Contains, change, "a::3\n");
  EXPECT_EQ(change.find("b::"), std::string::npos) << "only what changed";
  watch.Signal(SIGINT);
  EXPECT_EQ(watch.Wait(), 0);
  EXPECT_EQ(watch.Errors(), "");

  Program gone(root_, "pps", {"watch", kObject});
  EXPECT_TRUE(Eventually([&] { return !gone.Output().empty(); }));
  unit_->Stop();
  EXPECT_EQ(gone.Wait(), 1);
  EXPECT_PRED2(Contains, gone.Errors(), "the unit is gone");
}

TEST_F(PpsToolTest, WatchFollowsADirectoryAndWhatComesBelowIt) {
  WriteObject(kObject, "a::1");
  WriteObject("/pps/services/one", "b::2");
  Program watch(root_, "pps", {"watch", "services/one", "zelmar", "--times"});
  const auto prints = [&](const std::string& text) {
    return Eventually([&] { return Contains(watch.Output(), text); });
  };
  EXPECT_TRUE(prints(" /pps/services/one\n@one\nb::2\n"));
  EXPECT_TRUE(prints(" /pps/zelmar/setting/systeminfo\n@systeminfo\na::1\n"));
  WriteObject("/pps/zelmar/new/object", "c::3");
  EXPECT_TRUE(prints(" /pps/zelmar/new/object\n@object\nc::3\n"));
  EXPECT_EQ(Pps({"rm", "zelmar/new/object"}), 0);
  EXPECT_TRUE(prints(" /pps/zelmar/new/object\n-@object\n"));
  WriteObject("/pps/zelmar/new/object", "d::4");
  EXPECT_TRUE(prints(" /pps/zelmar/new/object\n@object\nd::4\n"));
  EXPECT_EQ(watch.Terminate(), 0);
  EXPECT_EQ(watch.Errors(), "");

  Program removed(root_, "pps", {"watch", kObject});
  EXPECT_TRUE(Eventually([&] { return !removed.Output().empty(); }));
  EXPECT_EQ(Pps({"rm", kObject}), 0);
  EXPECT_EQ(removed.Wait(), 1);
  EXPECT_PRED2(Contains, removed.Errors(), "was removed");
}

TEST_F(PpsToolTest, Usage) {
  for (const char* line :
       {"", "nonsense", "get", "get a b c", "set a", "watch", "ls a b", "-x ls", "--root",
        "-t get a", "-R get a", "--times ls", "get a?delta", "watch a b?wait"}) {
    EXPECT_EQ(Pps(Arguments(line)), 2) << line;
    EXPECT_PRED2(Contains, Err(), "see 'pps --help'");
    EXPECT_EQ(Out(), "");
  }
  EXPECT_EQ(Pps({"--help"}), 0);
  EXPECT_PRED2(Contains, Out(), "usage: pps");
  EXPECT_EQ(Pps({"ls", "--help"}), 0);
}

TEST_F(PpsToolTest, EveryToolSaysWhyThereIsNoUnit) {
  unit_->Stop();
  root_.AddFile("/file", "");
  const std::pair<std::string, std::string> roots[] = {
      {root_.path(), "no unit runs below " + root_.path()},
      {"dev", "no unit runs below " + root_.path() + "/dev (HEADUNIT_ROOT is 'dev', relative"},
      {root_.path() + "/file", "file is not a directory"},
      {"/nonexistent", "the unit's root /nonexistent: No such file or directory"},
  };
  for (const auto& [root, reason] : roots) {
    ::setenv("HEADUNIT_ROOT", root.c_str(), 1);
    for (const std::vector<std::string>& line : std::vector<std::vector<std::string>>{
             {"pps", "ls"}, {"sloginfo", "-t"}, {"station", "chip"}, {"headunit", "ctl", "help"}}) {
      // The ring stays when the unit ends, and can be read.
      if (line[0] == "sloginfo" && root == root_.path()) continue;
      Program program(root_, line[0], {line.begin() + 1, line.end()});
      EXPECT_EQ(program.Wait(), 1) << line[0];
      EXPECT_PRED2(Contains, program.Errors(), reason) << line[0];
    }
  }
}

TEST_F(PpsToolTest, AnOutputThatTakesNothingIsAFailureWithItsReason) {
  WriteObject(kObject, "big::" + std::string(200000, 'x'));
  const std::vector<std::string> lines[] = {{"pps", "get", kObject},
                                            {"sloginfo", "--help"},
                                            {"station", "commands"},
                                            {"headunit", "ctl", "help"}};
  for (const std::vector<std::string>& line : lines) {
    const std::vector<std::string> arguments(line.begin() + 1, line.end());
    Program full(root_, line[0], arguments, [] { ::dup2(::open("/dev/full", O_WRONLY), 1); });
    EXPECT_EQ(full.Wait(), 1);
    EXPECT_EQ(full.Errors(), line[0] + ": standard output: No space left on device\n");
    Program closed(root_, line[0], arguments, [] { ::close(1); });
    EXPECT_EQ(closed.Wait(), 1);
    EXPECT_EQ(closed.Errors(), line[0] + ": standard output: Bad file descriptor\n");
  }
}

TEST_F(PpsToolTest, BashCompletesWhatTheUnitHas) {
  if (KORVANDIS_EMULATOR[0] != '\0') GTEST_SKIP() << "the programs cannot be started by name";
  WriteObject(kObject, "name::1\nnumber:n:2");
  const auto complete = [&](const std::string& line) {
    const std::string program = line.substr(0, line.find(' '));
    return Completed(root_, SourceDir() + "/bench/tools/completion/" + program, line);
  };
  EXPECT_EQ(complete("pps w"), "watch\n");
  EXPECT_EQ(complete("pps get zelmar/s"), "zelmar/setting/ zelmar/setting/systeminfo\n");
  EXPECT_EQ(complete("pps watch a /pps/zelmar/setting/"),
            "/pps/zelmar/setting/ /pps/zelmar/setting/systeminfo\n");
  EXPECT_EQ(complete("pps rm zelmar/setting/systeminfo ''"), "name number\n");
  EXPECT_EQ(complete("pps set zelmar/setting/systeminfo nu"), "number=\n");
  EXPECT_EQ(complete("sloginfo --t"), "--text\n");
  EXPECT_EQ(complete("sloginfo -s d"), "debug1 debug2\n");
  EXPECT_EQ(complete("headunit ctl mc"), "mcu\n");
  EXPECT_EQ(complete("headunit ctl mcu ''"), "down up\n");
  EXPECT_EQ(complete("headunit ctl i2c speed ''"), "refuse accept\n");
  EXPECT_EQ(complete("headunit --no"), "--no-services\n");
  EXPECT_EQ(complete("headunit im"), "import\n");
  EXPECT_EQ(complete("headunit --service " + root_.path() + "/co"), root_.path() + "/complete\n");
}

class SloginfoTest : public ::testing::Test {
 protected:
  SloginfoTest() {
    root_.AddFile("/dev/.keep", "");
    EXPECT_EQ(qnx::CreateSlogRing(root_.path() + "/dev/slog", 64), 0);
  }
  // Logs a line in a process of its own, whose number it returns: this one's idea of the ring is
  // older than the test.
  static pid_t Log(int severity, const std::string& text, int opcode = 0x1B1DC) {
    qnx::ChildProcess child([&] {
      slogf(opcode, severity, "%s", text.c_str());
      return 0;
    });
    child.Wait(support::kSoon);
    return child.pid();
  }
  std::string Sloginfo(const std::vector<std::string>& arguments) {
    Program program(root_, "sloginfo", arguments);
    EXPECT_EQ(program.Wait(), 0) << program.Errors();
    return program.Output();
  }

  TempRoot root_;
};

// The texts of the lines printed, without time, severity, opcode and process.
std::string Texts(const std::string& output) {
  std::string texts;
  for (std::size_t start = 0; start < output.size();) {
    const std::size_t end = output.find('\n', start);
    const std::string line = output.substr(start, end - start);
    const std::size_t text = line.find("  ", 37);  // behind the padded process
    texts += (text == std::string::npos ? line : line.substr(text + 2)) + "\n";
    start = end + 1;
  }
  return texts;
}

TEST_F(SloginfoTest, PrintsFiltersAndLimits) {
  Log(_SLOG_ERROR, "bad\n");
  Log(_SLOG_DEBUG1, "two\nlines\x1B\r\n");
  Log(_SLOG_INFO, "last");
  const std::string all = Sloginfo({});
  EXPECT_EQ(Texts(all), "bad\ntwo\\nlines\\x1B\nlast\n") << all;
  EXPECT_PRED2(Contains, all, " error    0001b1dc ");
  EXPECT_PRED2(Contains, all, " debug1   0001b1dc ");
  EXPECT_EQ(Texts(Sloginfo({"-s", "error"})), "bad\n");
  EXPECT_EQ(Texts(Sloginfo({"-s", "info"})), "bad\nlast\n");
  EXPECT_EQ(Texts(Sloginfo({"-s5"})), "last\n");
  EXPECT_EQ(Texts(Sloginfo({"-s", "26"})), "bad\ntwo\\nlines\\x1B\n");
  EXPECT_EQ(Texts(Sloginfo({"-n", "1"})), "last\n");
  EXPECT_EQ(Sloginfo({"-n", "0"}), "");
  EXPECT_PRED2(Contains, Sloginfo({"-hn1"}), "severity opcode      pid  text\n");

  const std::string process = std::to_string(Log(_SLOG_INFO, "other", 77));
  EXPECT_EQ(Texts(Sloginfo({"-m", "77"})), "other\n");
  EXPECT_EQ(Texts(Sloginfo({"-m", "0x4d"})), "other\n");
  EXPECT_EQ(Texts(Sloginfo({"-m", "0001b1dc", "--text", "a"})), "bad\nlast\n");
  EXPECT_EQ(Texts(Sloginfo({"--process", process, "-n", "9"})), "other\n");
  int year = 0;
  unsigned microseconds = 0;
  const std::string dated = Sloginfo({"-t", "-m77"});
  EXPECT_EQ(std::sscanf(dated.c_str(), "%d-%*d-%*d %*d:%*d:%*d.%6u ", &year, &microseconds), 2);
  EXPECT_GT(year, 2000) << dated;

  EXPECT_EQ(Texts(Sloginfo({"-c", "-s", "error"})), "bad\n");
  Log(_SLOG_INFO, "new");
  EXPECT_EQ(Texts(Sloginfo({})), "new\n");
}

TEST_F(SloginfoTest, SaysHowManyLinesWereLost) {
  for (int i = 0; i < 100; ++i) Log(_SLOG_INFO, "line " + std::to_string(i));
  const std::string output = Texts(Sloginfo({}));
  int lost = 0;
  int first = 0;
  ASSERT_EQ(std::sscanf(output.c_str(), "... %d lines lost\nline %d\n", &lost, &first), 2)
      << output;
  EXPECT_EQ(lost, first);
  EXPECT_GE(lost, 36);
  EXPECT_LE(lost, 50) << "most of the ring is still there";
  EXPECT_PRED2(Contains, output, "\nline 99\n");
}

TEST_F(SloginfoTest, FollowsAcrossARestartOfTheUnit) {
  Log(_SLOG_INFO, "old");
  Program follow(root_, "sloginfo", {"-f", "-n", "0"});
  const auto shows = [&](const char* text) {
    Log(_SLOG_INFO, text);
    return Contains(Texts(follow.Output()), text);
  };
  EXPECT_TRUE(Eventually([&] { return shows("one\n"); })) << follow.Output();
  EXPECT_EQ(std::remove((root_.path() + "/dev/slog").c_str()), 0);
  std::this_thread::sleep_for(milliseconds(200) * support::kPatience);
  EXPECT_EQ(qnx::CreateSlogRing(root_.path() + "/dev/slog", 64), 0);
  EXPECT_TRUE(Eventually([&] { return shows("two\n"); })) << follow.Output();
  EXPECT_FALSE(Contains(follow.Output(), "old"));
  follow.Signal(SIGTERM);
  EXPECT_EQ(follow.Wait(), 0);
}

TEST_F(SloginfoTest, UsageAndWhatIsNoLog) {
  for (const char* line : {"-s", "-s loud", "-s 8", "-n -1", "-m 0xg", "-m 123456789a",
                           "--process me", "-x", "nonsense", "--root"}) {
    Program program(root_, "sloginfo", Arguments(line));
    EXPECT_EQ(program.Wait(), 2);
    EXPECT_PRED2(Contains, program.Errors(), "see 'sloginfo --help'");
  }
  EXPECT_PRED2(Contains, Sloginfo({"--help"}), "usage: sloginfo");
  root_.AddFile("/dev/slog", "not a ring, but long enough to hold a header's sixty-four bytes");
  Program wrong(root_, "sloginfo");
  EXPECT_EQ(wrong.Wait(), 1);
  EXPECT_PRED2(Contains, wrong.Errors(), "not a log ring");
}

}  // namespace
}  // namespace support
