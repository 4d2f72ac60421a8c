// One simulated chip per test, for the end-to-end flash and connection
// tests: its contents file, frame trace and HOME in a fresh directory, and
// the project every run opens first.
#pragma once
#include <cstdio>
#include <string>
#include <vector>

#include "tests/e2e/run_program.h"

struct Rig {
  TempDir dir;
  std::string chip = "C22018";
  std::string flash = dir.file("flash.bin");
  // Lines may end in LF alone. Empty: the program's own default project.
  std::string project = "[FLASH]\n  AutoDetect = 0\n  abID[3] = 0xC2,0x20,0x18\n";

  // The trace starts empty. `wrapper`: a program (and its arguments) to run
  // the program through.
  RunResult Run(std::vector<std::string> args, std::vector<std::string> env = {}, int timeout = 90,
                std::vector<std::string> wrapper = {}) {
    std::remove(dir.file("trace.txt").c_str());
    if (!project.empty()) {
      dir.write("chip.pellam", project);
      args.insert(args.begin(), {"-openprj", dir.file("chip.pellam")});
    }
    std::string program;
    if (!wrapper.empty()) {
      program = wrapper[0];
      wrapper.push_back(PellamBinary());
      args.insert(args.begin(), wrapper.begin() + 1, wrapper.end());
    }
    std::vector<std::string> e = {"TARLOSIM_CHIP=" + chip, "TARLOSIM_FLASH=" + flash,
                                  "TARLOSIM_TRACE=" + dir.file("trace.txt"), "HOME=" + dir.path()};
    e.insert(e.end(), env.begin(), env.end());
    RunResult r = RunProgram(args, dir.path(), e, timeout, program);
    r.out = StripCR(r.out);
    return r;
  }

  // The chip-select frames of the last run starting with opcode and at
  // least minLength bytes long.
  std::vector<Frame> FramesWith(uint8_t opcode, size_t minLength = 1) const {
    std::vector<Frame> r;
    for (const Frame& f : ParseTraceFrames(dir.read("trace.txt")))
      if (!f.empty() && f[0] == opcode && f.size() >= minLength) r.push_back(f);
    return r;
  }

  std::string Flash() const { return ReadFile(flash); }

  // Chip contents: data at `at`, the rest as it was (erased when new).
  void SetFlash(uint32_t at, const std::string& data, size_t chipSize = 16u << 20) {
    std::string contents = dir.exists("flash.bin") ? Flash() : std::string(chipSize, '\xFF');
    contents.replace(at, data.size(), data);
    dir.write("flash.bin", contents);
  }
};

inline uint32_t AddrOf(const Frame& f, int addrBytes) {
  uint32_t a = 0;
  for (int i = 1; i <= addrBytes; i++) a = a << 8 | f[i];
  return a;
}

inline std::vector<uint32_t> AddrsOf(const std::vector<Frame>& frames, int addrBytes) {
  std::vector<uint32_t> r;
  for (const Frame& f : frames) r.push_back(AddrOf(f, addrBytes));
  return r;
}
