// What both kinds of adapter offer the frame layer: parts of chip-select
// frames, queued and clocked in as few device round trips as the device
// allows, and status polls.
#pragma once
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>

#include "bridge/config.h"

namespace bridge {

// A poll: the frame prefix + n bytes read, repeated as new frames until
// (value & mask) == expected (value: the bytes read, little-endian).
struct PollCond {
  uint32_t mask, expected, maxRepeat;
  bool Met(const uint8_t* in, uint32_t n) const {
    uint32_t v = 0;
    for (uint32_t i = 0; i < n && i < 4; i++) v |= static_cast<uint32_t>(in[i]) << (8 * i);
    return (v & mask) == expected;
  }
};

inline int64_t NowMs() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

inline std::string Errno() { return std::strerror(errno); }

constexpr int kPollNotMet = -1;
constexpr int kLinkFailed = -2;
// Polls end after this long even when MaxRepeat allows more.
constexpr int kPollLimitMs = 5000;

class Link {
 public:
  using Reporter = std::function<void(const std::string&)>;
  virtual ~Link() = default;

  // Opens and sets up the device; false with *error (reported by the caller).
  virtual bool Open(const Config& c, std::string& error) = 0;
  // Ends any frame, releases chip select, pins and lines, closes. Idempotent.
  virtual void Close() = 0;
  // The SPI clock in Hz; returns the clock set (0: the device keeps its own).
  virtual uint32_t SetSpeed(uint32_t hz) = 0;
  // Appends n bytes of the current frame: out (null: 0xFF) clocked out, in
  // (null: discarded) filled by the next Sync or Poll, so out is copied and
  // in must stay valid until then. last: chip select is released after it
  // (n may be 0 to just release).
  virtual bool Add(const uint8_t* out, uint8_t* in, uint32_t n, bool last) = 0;
  // Everything added has been clocked and every in buffer filled.
  virtual bool Sync() = 0;
  // Clocks what is queued, then polls (see PollCond); the last bytes read go
  // to in. Returns the number of polls, kPollNotMet or kLinkFailed.
  virtual int Poll(const uint8_t* prefix, uint32_t prefixLen, uint8_t* in, uint32_t n, const PollCond& c) = 0;
  // Drives the target's reset line where there is one.
  virtual void SetReset(bool active) { (void)active; }

  void SetReporter(Reporter r) { report_ = std::move(r); }
  // What the device told about itself at open, for the library's log.
  const std::string& Info() const { return info_; }
  // The device stopped working: every further call fails without a message.
  bool Dead() const { return dead_; }

 protected:
  // Reports a failure once; dead: the device is gone for this session.
  // While opening, the reason goes back to the opener instead.
  bool Fail(const std::string& why, bool dead) {
    if (dead_) return false;
    dead_ = dead;
    if (capture_)
      *capture_ = why;
    else if (report_)
      report_(why);
    return false;
  }
  // Opening: a fresh session whose failures are collected into *error.
  void BeginOpen(std::string* error) {
    dead_ = false;
    capture_ = error;
  }
  void EndOpen() { capture_ = nullptr; }

  std::string info_;

 private:
  Reporter report_;
  std::string* capture_ = nullptr;
  bool dead_ = false;
};

// One per kind.
Link* NewSerprog();
Link* NewSpidev();

}  // namespace bridge
