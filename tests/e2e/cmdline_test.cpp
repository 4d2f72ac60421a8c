// The command line as a user meets it: the built program run in a fresh
// directory, judged by its standard output and exit status.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "tests/e2e/run_program.h"

namespace {

const char kHelp[] =
    "Available commands:\n"
    " -open<fname>[<saddr>]               Open data file\n"
    " -openprj<fname>                     Open an existing project\n"
    " -save[<saddr>,<eaddr>]              Save data file\n"
    " -saveas<fname>[,<saddr>,<eaddr>]    Save data in a different file\n"
    " -connect                            Connect to target\n"
    " -disconnect                         Disconnect from target\n"
    " -erasesectors                       Erase all sectors\n"
    " -erasechip                          Erase entire chip\n"
    " -program                            Program target\n"
    " -programverify                      Program and verify target\n"
    " -auto                               Erase, program and verify target\n"
    " -verify                             Verify target program\n"
    " -readrange[<saddr>,<eaddr>]         Read specified range\n"
    " -readchip                           Read entire chip\n"
    " -usb<SerialNumber>                  Select connection via USB\n"
    " -ip<hostname>                       Select connection via TCP/IP\n"
    " -speed<speed>                       Set interface speed\n"
    " -pellamlog<fname>                   Set a temporary Pellam log file\n"
    " -tarlolog<fname>                    Set a temporary Tarlo log file\n"
    " -verbose<level>                     Set verbosity level\n"
    " -help                               Show list of commands\n"
    " -?                                  Show list of commands\n";

RunResult RunIn(const TempDir& dir, const std::vector<std::string>& args) {
  return RunProgram(args, dir.path(), {"HOME=" + dir.path()});
}

// Output without the lines whose figures change from run to run.
std::string WithoutTimings(const std::string& out) {
  std::istringstream in(StripCR(out));
  std::string line, result;
  while (std::getline(in, line)) {
    if (line.find("Completed after") == std::string::npos) result += line + "\n";
  }
  return result;
}

// No arguments, or any spelling of the help option: the banner, then the help.
TEST(CommandLine, BannerAndHelp) {
  TempDir dir;
  for (const std::vector<std::string>& args : std::vector<std::vector<std::string>>{{}, {"-help"}, {"-?"}, {"?"}, {"-HELP"}}) {
    const std::string label = args.empty() ? "none" : args[0];
    const RunResult r = RunIn(dir, args);
    EXPECT_EQ(r.exitStatus, 0) << label;
    EXPECT_EQ(r.out.rfind("Valmik Pellam SPI V6.80 Command Line Version\r\nTarloARM.dll V", 0), 0u) << r.out;
    EXPECT_TRUE(Has(r, " (DLL compiled ")) << r.out;
    EXPECT_TRUE(Has(r, kHelp)) << label;  // shutdown may report after it
  }
}

// Every syntax error stops the walk with 255: what came before has run,
// what comes after has not.
TEST(CommandLine, SyntaxErrorsStopTheWalk) {
  struct Case {
    std::vector<std::string> args;
    std::string message;
    bool last = false;   // the error needs the option to end the line
  };
  const std::string decimal = "Expected an decimal digit (0-9)";
  const std::string hex = "Expected a hexadecimal digit (0-9, A-F) after hex specified \"0x\"";
  const Case cases[] = {
      {{"-openprj"}, "Missing command line parameter after option \"-openprj\".", true},
      {{"-openprj\"\""}, "Missing command line parameter after option \"-openprj\"."},
      {{"-openprjboard.txt"}, "Wrong file extension after option \"-openprj\"."},
      {{"-OPENPRJ", "board"}, "Wrong file extension after option \"-openprj\"."},
      {{"-open"}, "Missing command line parameter after option \"-open\".", true},
      {{"-OPEN"}, "Missing command line parameter after option \"-open\".", true},
      {{"-opendata.bin"}, "Missing command line parameter after data file path."},
      {{"-open", "data.bin"}, "Missing command line parameter after data file path.", true},
      {{"-opendata.bin,zz"}, decimal + " after ',' for option \"-open\"."},
      {{"-open", "data.BIN", "0xZ"}, hex + " after option \"-open\"."},
      {{"-saveas"}, "Missing command line parameter after option \"-saveas\".", true},
      {{"-saveasout.bin"}, "Missing command line parameter after data file path."},
      {{"-saveasout.bin,q"}, decimal + " as SADDR for option \"-saveas\"."},
      {{"-saveasout.bin,0x10"}, "Missing second ',' after SADDR."},
      {{"-saveasout.bin,0x10,"}, decimal + " as EADDR for option \"-saveas\"."},
      {{"-saveas", "out.c", "1,2"}, decimal + " after option \"-saveas\"."},
      {{"-save"}, "No data file opened to save to."},
      {{"-saveas", "out.bin", "-save0x10"}, "Unknown symbol after first address."},
      {{"-saveas", "out.bin", "-savez"}, decimal + " after option \"-save\"."},
      {{"-saveas", "out.bin", "-save1,"}, decimal + " after ',' for option \"-save\"."},
      {{"-saveas", "out.c", "-save", "1,2"}, decimal + " after option \"-save\"."},
      {{"-pellamlog"}, "Missing command line parameter after option \"-pellamlog\".", true},
      {{"-tarlolog"}, "Missing command line parameter after option \"-tarlolog\".", true},
      {{"-readrange"}, "Missing command line parameter after option \"-readrange\".", true},
      {{"-readrange0x10"}, "Missing ',' after first address."},
      {{"-readrange0x10, "}, "Missing end address after ','."},
      {{"-readrange0x10,g"}, decimal + " as second address parameter after option \"-readrange\"."},
      {{"-readrangeg"}, decimal + " after option \"-readrange\"."},
      {{"-readrange", "0x1000,0x1FFF"}, decimal + " after option \"-readrange\"."},
      {{"-readrange", "0X1000-0x1FFF"}, decimal + " after option \"-readrange\"."},
      {{"-select"}, "Missing command line parameter after option \"-select\".", true},
      {{"-select", "USB=zz"}, decimal + " after option \"-select USB=\"."},
      {{"-select", "COM1"}, "Invalid value for option \"-select\" found."},
      {{"-select", "USB123"}, "Invalid value for option \"-select\" found."},
      {{"-speed"}, "Missing command line parameter after option \"-speed\".", true},
      {{"-speedfast"}, decimal + " after option \"-speed\"."},
      {{"-openprjnone.pellam", "-speedfast"},  // the project's block is copied before the value is read
       "No project file opened.\nERROR: " + decimal + " after option \"-speed\"."},
      {{"-verbose"}, "Missing command line parameter after option \"-verbose\".", true},
      {{"-verbose", "0x"}, hex + " after option \"-verbose\"."},
  };
  for (const Case& c : cases) {
    TempDir dir;
    std::vector<std::string> args = {"-pellamlogbefore.log"};
    args.insert(args.end(), c.args.begin(), c.args.end());
    if (!c.last) args.push_back("-pellamlogafter.log");
    const RunResult r = RunIn(dir, args);
    const std::string label = c.args[0] + (c.args.size() > 1 ? " " + c.args[1] : "");
    EXPECT_EQ(r.exitStatus, 255) << label << "\n" << r.out;
    EXPECT_TRUE(Has(r, "ERROR: " + c.message + "\n")) << label << "\n" << r.out;
    EXPECT_TRUE(dir.exists("before.log")) << label;
    EXPECT_FALSE(dir.exists("after.log")) << label;
  }
}

TEST(CommandLine, UnknownArgumentIsOnlyAWarning) {
  TempDir dir;
  const RunResult r = RunIn(dir, {"-bogus", "-pellamlogafter.log", "-Verify2", "-connectx"});
  EXPECT_EQ(r.exitStatus, 0) << r.out;
  EXPECT_TRUE(Has(r, "WARNING: Unknown command line parameter -bogus found.\n")) << r.out;
  EXPECT_TRUE(Has(r, "WARNING: Unknown command line parameter -Verify2 found.\n")) << r.out;
  EXPECT_TRUE(Has(r, "WARNING: Unknown command line parameter -connectx found.\n")) << r.out;
  EXPECT_TRUE(dir.exists("after.log"));
}

TEST(CommandLine, PellamLogIsCreatedTruncated) {
  TempDir dir;
  dir.write("old.log", "previous contents");
  const RunResult r = RunIn(dir, {"-pellamlog", "old.log", "-PellamLog new.log", "-help"});
  EXPECT_EQ(r.exitStatus, 0) << r.out;
  ASSERT_TRUE(dir.exists("old.log"));
  EXPECT_EQ(dir.read("old.log"), "");
  // The glued form skips the blank after the option name; the file then
  // receives what is printed after the option.
  ASSERT_TRUE(dir.exists("new.log"));
  EXPECT_EQ(dir.read("new.log").rfind(kHelp, 0), 0u);
  struct stat st;
  ASSERT_EQ(stat(dir.file("new.log").c_str(), &st), 0);
  const mode_t mask = umask(0);
  umask(mask);
  EXPECT_EQ(st.st_mode & 0777, 0644u & ~mask);
}

// A glued name may have 256 characters, not 257 (the 257th makes it a
// missing parameter, as does an empty quoted name); the parser's own message
// is hidden at verbosity 0, the error is not. The separate form takes the
// whole argument.
TEST(CommandLine, GluedNameLimits) {
  const std::string name256 = "d/" + std::string(250, 'n') + ".log";
  const std::string name257 = "d/" + std::string(251, 'm') + ".log";
  const std::string missing = "ERROR: Missing command line parameter after option \"-pellamlog\".\n";
  const struct {
    std::vector<std::string> args;
    std::string file;  // created by the run, or empty
    std::string parser;  // the parser's message, or empty
  } cases[] = {
      {{"-pellamlog" + name256}, name256, ""},
      {{"-pellamlog" + name257}, "", "CMDLINE_GetString: String to long\r\n"},
      {{"-verbose0", "-pellamlog" + name257}, "", ""},
      {{"-pellamlog\"\""}, "", "CMDLINE_GetString:  Missing string\r\n"},
      {{"-pellamlog", name257}, name257, ""},
  };
  for (const auto& c : cases) {
    TempDir dir;
    std::filesystem::create_directory(dir.file("d"));
    const RunResult r = RunIn(dir, c.args);
    const std::string label = c.args.back().substr(0, 20);
    EXPECT_EQ(r.exitStatus, c.file.empty() ? 255 : 0) << label << "\n" << r.out;
    EXPECT_EQ(Has(r, missing), c.file.empty()) << label << "\n" << r.out;
    EXPECT_EQ(Has(r, "CMDLINE_GetString"), !c.parser.empty()) << label << "\n" << r.out;
    EXPECT_TRUE(c.parser.empty() || Has(r, c.parser)) << label << "\n" << r.out;
    EXPECT_TRUE(c.file.empty() || dir.exists(c.file)) << label;
    EXPECT_EQ(dir.exists(name257), c.file == name257) << label;
  }
}

TEST(CommandLine, QuotedGluedNamesMayContainCommas) {
  TempDir dir;
  const RunResult r = RunIn(dir, {"-pellamlog\"a,b.log\"", "-pellamlog c,d.log", "-tarlolog \"x y\""});
  EXPECT_EQ(r.exitStatus, 0) << r.out;
  EXPECT_TRUE(dir.exists("a,b.log"));
  EXPECT_TRUE(dir.exists("c"));          // unquoted: the name ends at the comma
  EXPECT_FALSE(dir.exists("c,d.log"));
}

// The choice overrides the project's connection (its host is never used)
// and shows in the connect announcement, whether a probe answers or not;
// without a choice the project's connection mode counts. The project is
// left as it was.
TEST(CommandLine, ConnectionChoiceReachesTheConnection) {
  const std::string project = "[JTAG]\r\n  Speed0 = 4000\r\n[GENERAL]\r\n  HostName = \"probe.local\"\r\n";
  const struct {
    std::vector<std::string> args;
    const char* announcement;
  } cases[] = {
      {{"-usb3", "-connect"}, "Connecting via USB to Tarlo device 3"},
      {{"-usb4", "-connect"}, "Connecting via USB to Tarlo with SN 4"},
      {{"-usb0x20", "-connect"}, "Connecting via USB to Tarlo with SN 32"},
      {{"-select", "USB=0x1F", "-connect"}, "Connecting via USB to Tarlo with SN 31"},
      {{"-ip 10.1.2.3", "-connect"}, "Connecting via TCP/IP to 10.1.2.3"},
      {{"-select", "IP", "-connect"}, "Connecting via TCP/IP to "},  // no "=": empty host
      {{"-select", "IP=", "-connect"}, "Connecting via TCP/IP to localhost"},
      {{"-select", "IP=10.0.0.7", "-connect"}, "Connecting via TCP/IP to 10.0.0.7"},
      {{"-speed12000", "-connect"}, "Connecting via USB to Tarlo device 0"},  // the project's own choice
  };
  for (const auto& c : cases) {
    TempDir dir;
    dir.write("Default.pellam", project);
    const RunResult r = RunIn(dir, c.args);
    const std::string out = StripCR(r.out);
    EXPECT_NE(r.exitStatus, 255) << c.args[0];
    EXPECT_NE(out.find(std::string(c.announcement) + "\n"), std::string::npos) << c.args[0] << "\n" << r.out;
    EXPECT_EQ(out.find("probe.local"), std::string::npos) << r.out;
    EXPECT_EQ(out.find("Saving project file"), std::string::npos) << r.out;
    EXPECT_EQ(dir.read("Default.pellam"), project) << c.args[0];  // exit drops the change
  }
}

TEST(CommandLine, VerbosityIsClampedToNine) {
  TempDir dir;
  const RunResult v20 = RunIn(dir, {"-verbose20", "-open", "missing.hex", "-connect"});
  const RunResult v9 = RunIn(dir, {"-verbose9", "-open", "missing.hex", "-connect"});
  EXPECT_EQ(v20.exitStatus, v9.exitStatus);
  EXPECT_EQ(WithoutTimings(v20.out), WithoutTimings(v9.out));
}

TEST(CommandLine, VerbosityZeroSilencesTheLogButNotTheExitStatus) {
  TempDir dir;
  const RunResult quiet = RunIn(dir, {"-verbose0", "-open", "missing.hex"});
  EXPECT_EQ(quiet.exitStatus, 1) << quiet.out;
  EXPECT_FALSE(Has(quiet, "ERROR:")) << quiet.out;
  EXPECT_FALSE(Has(quiet, "missing.hex")) << quiet.out;

  const RunResult normal = RunIn(dir, {"-open", "missing.hex"});
  EXPECT_EQ(normal.exitStatus, 1) << normal.out;
  EXPECT_TRUE(Has(normal, "ERROR:")) << normal.out;
}

// The exit status is that of the last top-level operation.
TEST(CommandLine, ExitStatusFollowsTheLastOperation) {
  TempDir dir;
  dir.write("ok.bin", std::string("\x01\x02\x03\x04", 4));
  RunResult r = RunIn(dir, {"-open", "missing.hex", "-open", "ok.bin", "0x100"});
  EXPECT_EQ(r.exitStatus, 0) << r.out;
  r = RunIn(dir, {"-openok.bin,0x100", "-open", "missing.hex"});
  EXPECT_EQ(r.exitStatus, 1) << r.out;
}

TEST(CommandLine, QuotedBinaryNameWithBaseAddress) {
  TempDir dir;
  dir.write("x,y.bin", std::string(16, '\x5A'));
  const RunResult r = RunIn(dir, {"-open\"x,y.bin\" , 0x1000", "-saveas", "out.bin"});
  EXPECT_EQ(r.exitStatus, 0) << r.out;
  EXPECT_EQ(dir.read("out.bin"), std::string(16, '\x5A'));
}

// A name that starts with its only dot has no extension, for the checks of
// the command line as for the data file dispatch: ".pellam" is no project
// name, ".bin" no binary file that wants a base address.
TEST(CommandLine, NameStartingWithItsOnlyDotHasNoExtension) {
  struct Case {
    std::vector<std::string> args;
    int exitStatus;
    std::string expected;
  };
  const std::string wrongProject = "ERROR: Wrong file extension after option \"-openprj\".\n";
  const Case cases[] = {
      {{"-openprj", ".pellam"}, 255, wrongProject},
      {{"-openprj.PELLAM"}, 255, wrongProject},
      {{"-openprj", "dir/.pellam"}, 255, wrongProject},
      {{"-open", ".bin"}, 1, "Opening data file [.bin] ...\n- ERROR: Unsupported file type (*)\n"},
      {{"-open.bin"}, 1, "Opening data file [.bin] ...\n- ERROR: Unsupported file type (*)\n"},
      {{"-open", "dir/.BIN"}, 1, "Opening data file [dir/.BIN] ...\n- ERROR: Unsupported file type (*)\n"},
      {{"-open", "in.hex", "-saveas.bin"}, 1, "Saving data file [.bin] ...\n- ERROR: Unsupported file type (*)\n"},
  };
  for (const Case& c : cases) {
    TempDir dir;
    dir.write("in.hex", ":0400000001020304F2\r\n:00000001FF\r\n");
    dir.write(".pellam", "[JTAG]\r\n  Speed0 = 4000\r\n");
    dir.write(".bin", "data");
    std::vector<std::string> args = c.args;
    args.push_back("-pellamlogafter.log");
    RunResult r = RunIn(dir, args);
    r.out = StripCR(r.out);
    const std::string label = c.args[0] + (c.args.size() > 1 ? " " + c.args[1] : "");
    EXPECT_EQ(r.exitStatus, c.exitStatus) << label << "\n" << r.out;
    EXPECT_TRUE(Has(r, c.expected)) << label << "\n" << r.out;
    EXPECT_FALSE(Has(r, "Missing command line parameter")) << label << "\n" << r.out;
    EXPECT_EQ(dir.exists("after.log"), c.exitStatus != 255) << label;  // a syntax error stops the walk
    EXPECT_FALSE(dir.exists(".config/Valmik/PellamSPI.ini")) << label;  // no project was opened
  }
}

// Both range forms read the same range; only the separators differ.
TEST(CommandLine, ReadRangeForms) {
  TempDir dir;
  const RunResult glued = RunIn(dir, {"-readrange0x1000, 0x1FFF"});
  const RunResult separate = RunIn(dir, {"-readrange", "0x1000-0x1FFF"});
  const RunResult blank = RunIn(dir, {"-readrange", "0x1000 0x1FFF"});
  EXPECT_NE(glued.exitStatus, 255) << glued.out;
  EXPECT_EQ(glued.exitStatus, separate.exitStatus);
  EXPECT_EQ(glued.exitStatus, blank.exitStatus);
  EXPECT_EQ(WithoutTimings(glued.out), WithoutTimings(separate.out));
  EXPECT_EQ(WithoutTimings(glued.out), WithoutTimings(blank.out));
}

}  // namespace
