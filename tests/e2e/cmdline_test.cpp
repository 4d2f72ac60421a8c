// The command line as a user meets it: the built program run in a fresh
// directory, judged by its standard output and exit status.
#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "tests/e2e/run_program.h"

namespace {

// The help's first and last lines: its start, its column layout and its end.
const char kHelpStart[] =
    "Available commands:\n"
    " -open<fname>[<saddr>]               Open data file\n"
    " -openprj<fname>                     Open an existing project\n";
const char kHelpEnd[] =
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
  const std::vector<std::string> runs[] = {{}, {"-help"}, {"-?"}, {"?"}, {"-HELP"}};
  for (const std::vector<std::string>& args : runs) {
    const std::string label = args.empty() ? "none" : args[0];
    const RunResult r = RunIn(dir, args);
    EXPECT_EQ(r.exitStatus, 0) << label;
    EXPECT_EQ(r.out.rfind("Valmik Pellam SPI V6.80 Command Line Version\r\nTarloARM.dll V", 0), 0u) << r.out;
    EXPECT_TRUE(Has(r, " (DLL compiled ")) << r.out;
    EXPECT_TRUE(Has(r, kHelpStart)) << label;
    EXPECT_EQ(Count(r.out, "\n -"), 22u) << label;  // one line per option
    EXPECT_TRUE(Has(r, kHelpEnd)) << label;  // shutdown may report after it
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
  std::vector<Case> cases = {
      {{"-openprj\"\""}, "Missing command line parameter after option \"-openprj\"."},
      {{"-openprjboard.txt"}, "Wrong file extension after option \"-openprj\"."},
      {{"-openprj", "dir/.pellam"}, "Wrong file extension after option \"-openprj\"."},  // only a dot: no extension
      {{"-opendata.bin"}, "Missing command line parameter after data file path."},
      {{"-open", "data.bin"}, "Missing command line parameter after data file path.", true},
      {{"-opendata.bin,zz"}, decimal + " after ',' for option \"-open\"."},
      {{"-open", "data.BIN", "0xZ"}, hex + " after option \"-open\"."},
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
      {{"-readrange0x10"}, "Missing ',' after first address."},
      {{"-readrange0x10, "}, "Missing end address after ','."},
      {{"-readrange0x10,g"}, decimal + " as second address parameter after option \"-readrange\"."},
      {{"-readrangeg"}, decimal + " after option \"-readrange\"."},
      {{"-readrange", "0x1000,0x1FFF"}, decimal + " after option \"-readrange\"."},
      {{"-select", "USB=zz"}, decimal + " after option \"-select USB=\"."},
      {{"-select", "COM1"}, "Invalid value for option \"-select\" found."},
      {{"-select", "USB123"}, "Invalid value for option \"-select\" found."},
      {{"-speedfast"}, decimal + " after option \"-speed\"."},
      {{"-openprjnone.pellam", "-speedfast"},  // the project's block is copied before the value is read
       "No project file opened.\nERROR: " + decimal + " after option \"-speed\"."},
      {{"-verbose", "0x"}, hex + " after option \"-verbose\"."},
  };
  // Each option that takes a parameter, given last without it.
  for (const char* option :
       {"-openprj", "-open", "-saveas", "-pellamlog", "-tarlolog", "-readrange", "-select", "-speed", "-verbose"}) {
    cases.push_back({{option}, "Missing command line parameter after option \"" + std::string(option) + "\".", true});
  }
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
    std::string file;    // created by the run, or empty
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

// Runs that are no syntax error go on to the end: the exit status is that of
// the last top-level operation, what it printed shows (or, at verbosity 0,
// does not), and the files it was to write are there. A name that starts
// with its only dot has no extension, for the command line as for the data
// file dispatch: ".pellam" is no project name, ".bin" no binary file that
// wants a base address.
TEST(CommandLine, RunsThatGoOn) {
  const std::string unsupported = " ...\n- ERROR: Unsupported file type (*)\n";
  const struct {
    std::vector<std::string> args;
    int exitStatus;
    std::vector<std::string> shown;
    std::vector<std::string> hidden;
  } cases[] = {
      {{"-bogus", "-Verify2", "-connectx"}, 0, {"WARNING: Unknown command line parameter -bogus found.\n",
                                               "parameter -Verify2 found.\n", "parameter -connectx found.\n"}, {}},
      {{"-verbose0", "-open", "missing.hex"}, 1, {}, {"ERROR:", "missing.hex"}},
      {{"-open", "missing.hex"}, 1, {"ERROR:"}, {}},
      {{"-open", "missing.hex", "-open", "ok.bin", "0x100"}, 0, {}, {}},
      {{"-openok.bin,0x100", "-open", "missing.hex"}, 1, {}, {}},
      {{"-open\"x,y.bin\" , 0x1000", "-saveas", "out.bin"}, 0, {"Saving data file [out.bin]"}, {}},
      {{"-pellamlog\"a,b.log\"", "-pellamlog c,d.log", "-tarlolog \"x y\""}, 0, {}, {}},
      {{"-open", ".bin"}, 1, {"Opening data file [.bin]" + unsupported}, {}},
      {{"-open", "dir/.BIN"}, 1, {"Opening data file [dir/.BIN]" + unsupported}, {}},
      {{"-open", "in.hex", "-saveas.bin"}, 1, {"Saving data file [.bin]" + unsupported}, {}},
  };
  for (const auto& c : cases) {
    TempDir dir;
    dir.write("ok.bin", "\x01\x02\x03\x04");
    dir.write("x,y.bin", std::string(16, '\x5A'));
    dir.write("in.hex", ":0400000001020304F2\r\n:00000001FF\r\n");
    dir.write(".bin", "data");
    std::vector<std::string> args = c.args;
    args.push_back("-pellamlogafter.log");
    const RunResult r = RunIn(dir, args);
    const std::string out = StripCR(r.out), label = c.args[0] + " " + c.args.back();
    EXPECT_EQ(r.exitStatus, c.exitStatus) << label << "\n" << r.out;
    for (const std::string& text : c.shown) EXPECT_NE(out.find(text), std::string::npos) << label << "\n" << out;
    for (const std::string& text : c.hidden) EXPECT_EQ(out.find(text), std::string::npos) << label << "\n" << out;
    EXPECT_EQ(out.find("Missing command line parameter"), std::string::npos) << label << "\n" << out;
    EXPECT_TRUE(dir.exists("after.log")) << label;
  }
  // What the runs above wrote: a quoted name keeps its comma, an unquoted one
  // ends at it; the image keeps its bytes.
  TempDir dir;
  dir.write("x,y.bin", std::string(16, '\x5A'));
  RunIn(dir, {"-open\"x,y.bin\" , 0x1000", "-saveas", "out.bin", "-pellamlog\"a,b.log\"", "-pellamlog c,d.log"});
  EXPECT_EQ(dir.read("out.bin"), std::string(16, '\x5A'));
  EXPECT_TRUE(dir.exists("a,b.log"));
  EXPECT_TRUE(dir.exists("c"));
  EXPECT_FALSE(dir.exists("c,d.log"));
}

// Verbosity above 9 is 9; both range forms read the same range, only the
// separators differ.
TEST(CommandLine, SpellingsThatMeanTheSame) {
  const std::vector<std::vector<std::string>> groups[] = {
      {{"-verbose20", "-open", "missing.hex", "-connect"}, {"-verbose9", "-open", "missing.hex", "-connect"}},
      {{"-readrange0x1000, 0x1FFF"}, {"-readrange", "0x1000-0x1FFF"}, {"-readrange", "0x1000 0x1FFF"}},
  };
  for (const auto& group : groups) {
    TempDir dir;
    const RunResult first = RunIn(dir, group[0]);
    EXPECT_NE(first.exitStatus, 255) << first.out;
    for (const auto& args : group) {
      const RunResult r = RunIn(dir, args);
      EXPECT_EQ(first.exitStatus, r.exitStatus) << args[0];
      EXPECT_EQ(WithoutTimings(first.out), WithoutTimings(r.out)) << args[0];
    }
  }
}

}  // namespace
