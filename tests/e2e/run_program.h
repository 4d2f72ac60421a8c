// Runs the built pellam-spi as a user would: in a directory of the test's
// choosing, with extra environment variables, capturing stdout and the exit
// status. Shared by every end-to-end test; the file helpers by the unit
// tests too.
#pragma once
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

struct RunResult {
  int exitStatus = -1;     // the program's exit status, or -1 when it did not exit normally
  std::string out;         // everything written to standard output
  std::string err;         // everything written to standard error
};

// A fresh temporary directory, removed with its contents on destruction.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const { return path_ + "/" + name; }
  void write(const std::string& name, const std::string& contents) const;
  std::string read(const std::string& name) const;   // empty when missing
  bool exists(const std::string& name) const;
 private:
  std::string path_;
};

// Contents of the file at path (empty when missing).
std::string ReadFile(const std::string& path);

// Path of the built program (beside it: the simulated libtarloarm.so).
std::string PellamBinary();

// Runs `program` (default: the built pellam-spi) with args in cwd. env
// entries "NAME=value" are added to (or replace in) the inherited
// environment (less any inherited TARLOSIM_* simulator setting); "NAME"
// alone removes the variable. Times out after
// timeoutSeconds (the child is killed, exitStatus -1).
RunResult RunProgram(const std::vector<std::string>& args, const std::string& cwd,
                     const std::vector<std::string>& env = {}, int timeoutSeconds = 120,
                     const std::string& program = "");

// Replaces "\r\n" by "\n", for comparing operation-log output.
std::string StripCR(const std::string& s);

// True when the run's standard output holds text.
bool Has(const RunResult& r, const std::string& text);

// Number of (possibly overlapping) occurrences of what in s.
size_t Count(const std::string& s, const std::string& what);

// n pseudo-random bytes from seed, none of them 0xFF, so that no page of
// them is blank and the program cannot skip it.
std::string Pattern(size_t n, uint32_t seed);

// One chip-select frame of the simulator's trace: the bytes the chip received.
using Frame = std::vector<uint8_t>;

// The frames of a trace text, event lines (starting with '#') left out.
std::vector<Frame> ParseTraceFrames(const std::string& traceText);
