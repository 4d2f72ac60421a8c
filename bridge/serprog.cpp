// serprog adapters over a serial port or TCP. Commands are queued and
// streamed ahead within the device's serial buffer; answers come back in
// order and are matched to what is waiting for them. Every read has a
// time-out, so a device that stops answering ends the operation instead of
// hanging it.
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <deque>
#include <vector>

#include "bridge/link.h"

namespace bridge {

namespace {

enum : uint8_t {
  NOP = 0x00, Q_IFACE = 0x01, Q_CMDMAP = 0x02, Q_PGMNAME = 0x03, Q_SERBUF = 0x04, Q_BUSTYPE = 0x05,
  Q_WRNMAXLEN = 0x08, SYNCNOP = 0x10, Q_RDNMAXLEN = 0x11, S_BUSTYPE = 0x12, O_SPIOP = 0x13,
  S_SPI_FREQ = 0x14, S_PIN_STATE = 0x15, S_SPI_CS = 0x16, S_SPI_MODE = 0x17, S_CS_MODE = 0x18,
};
constexpr uint8_t kAck = 0x06, kNak = 0x15;
constexpr uint8_t kBusSpi = 0x08;
constexpr int kAnswerMs = 2000;    // silence that means the device stopped answering
constexpr int kSyncMs = 3000;      // boards that reset when the port opens need about a second
constexpr int kConnectMs = 3000;
constexpr uint32_t kUnbounded = 1u << 24;
// Without the limit queries one popular firmware copies each write into a
// 4096-byte buffer without checking: stay within it.
constexpr uint32_t kUnqueriedWriteMax = 4096;
constexpr uint32_t kMaxPollsAhead = 4;

void Put(std::vector<uint8_t>& v, uint32_t x, int bytes) {
  for (int i = 0; i < bytes; i++) v.push_back(static_cast<uint8_t>(x >> (8 * i)));
}

uint32_t Le(const uint8_t* p, uint32_t n) {
  uint32_t v = 0;
  for (uint32_t i = 0; i < n && i < 4; i++) v |= static_cast<uint32_t>(p[i]) << (8 * i);
  return v;
}

speed_t BaudConstant(uint32_t baud) {
  static constexpr std::pair<uint32_t, speed_t> kRates[] = {
      {9600, B9600},       {19200, B19200},     {38400, B38400},     {57600, B57600},     {115200, B115200},
      {230400, B230400},   {460800, B460800},   {500000, B500000},   {921600, B921600},   {1000000, B1000000},
      {1500000, B1500000}, {2000000, B2000000}, {3000000, B3000000}, {4000000, B4000000},
  };
  for (auto [rate, c] : kRates)
    if (rate == baud) return c;
  return B0;
}

class Serprog final : public Link {
 public:
  ~Serprog() override { Close(); }
  bool Open(const Config& c, std::string& error) override;
  void Close() override;
  uint32_t SetSpeed(uint32_t hz) override;
  bool Add(const uint8_t* out, uint8_t* in, uint32_t n, bool last) override;
  bool Sync() override;
  int Poll(const uint8_t* prefix, uint32_t prefixLen, uint8_t* in, uint32_t n, const PollCond& c) override;

 private:
  struct Piece {
    uint8_t* dest;
    uint32_t len;
  };
  struct Entry {
    explicit Entry(const char* w) : what(w) {}
    const char* what;
    uint32_t bytes = 0;    // the command's size, counted against the serial buffer
    uint32_t dataLen = 0;  // bytes after the ACK
    std::vector<Piece> pieces;
    uint32_t pollId = 0;
  };

  bool Has(uint8_t op) const { return (cmdmap_[op / 8] >> (op % 8)) & 1; }
  bool Dying(const std::string& what) { return Fail(name_ + " " + what, true); }
  void Shut();  // closes without a word to the device
  bool OpenTty(const Config& c);
  bool ConnectTcp(const Config& c);
  bool GetInStep();
  bool Setup(const Config& c);
  int ReadRaw(uint8_t& b, int timeoutMs);
  bool ReadBytes(uint8_t* p, uint32_t n);
  bool WriteAll(const uint8_t* p, size_t n);
  bool FlushTx();
  bool Send(const std::vector<uint8_t>& cmd, Entry e);
  bool ReceiveOne(uint32_t* pollId = nullptr);
  bool Drain();
  bool Call(std::vector<uint8_t> cmd, const char* what, uint8_t* answer = nullptr, uint32_t len = 0);
  bool SpiOp(const uint8_t* w, uint32_t slen, std::vector<Piece> reads, uint32_t rlen, uint32_t pollId = 0,
             bool duplex = false);
  bool HoldCs(bool held, const std::string& why = "");
  bool EmitOp(bool end);
  std::vector<Piece> TakeReads(size_t& at, uint32_t& off, uint32_t len);

  int fd_ = -1;
  std::string name_;
  uint8_t cmdmap_[32] = {};
  uint32_t serbuf_ = 1, wrmax_ = kUnqueriedWriteMax, rdmax_ = kUnbounded;
  std::vector<uint8_t> tx_;  // commands not yet written
  std::deque<Entry> inflight_;
  uint32_t inflightBytes_ = 0;
  std::vector<uint8_t> rx_;
  size_t rxAt_ = 0;
  std::vector<uint8_t> answer_;  // the data of the answer received last
  // The operation being built: its write phase, then its read phase.
  std::vector<uint8_t> opOut_;
  std::vector<Piece> opReads_;
  uint32_t opRlen_ = 0;
  bool held_ = false;  // S_CS_MODE holds chip select across operations
  uint32_t pollSeq_ = 0;
};

// ---- bytes on the wire ----

// 1: a byte; 0: nothing within the time; -1: the device is gone (reported).
int Serprog::ReadRaw(uint8_t& b, int timeoutMs) {
  if (rxAt_ == rx_.size()) {
    rx_.clear();
    rxAt_ = 0;
    pollfd p{fd_, POLLIN, 0};
    const int64_t end = NowMs() + timeoutMs;
    for (;;) {
      const int left = static_cast<int>(end - NowMs());
      const int r = poll(&p, 1, left > 0 ? left : 0);
      if (r < 0 && errno == EINTR) continue;
      if (r == 0) return 0;
      uint8_t buf[65536];
      const ssize_t got = r < 0 ? -1 : read(fd_, buf, sizeof buf);
      if (got > 0) {
        rx_.assign(buf, buf + got);
        break;
      }
      if (got < 0 && (errno == EAGAIN || errno == EINTR)) continue;
      Dying(got == 0 ? "was disconnected (end of data)" : "was disconnected (" + Errno() + ")");
      return -1;
    }
  }
  b = rx_[rxAt_++];
  return 1;
}

bool Serprog::ReadBytes(uint8_t* p, uint32_t n) {
  for (uint32_t i = 0; i < n;) {
    if (rxAt_ < rx_.size()) {
      const uint32_t k = static_cast<uint32_t>(std::min<size_t>(n - i, rx_.size() - rxAt_));
      if (p) std::memcpy(p + i, rx_.data() + rxAt_, k);
      rxAt_ += k;
      i += k;
      continue;
    }
    uint8_t b = 0;
    const int r = ReadRaw(b, kAnswerMs);
    if (r < 0) return false;
    if (r == 0) return Dying("stopped answering (nothing for 2 s)");
    if (p) p[i] = b;
    i++;
  }
  return true;
}

// Waits while the device cannot take more, reading what it sends meanwhile
// so that neither side blocks the other.
bool Serprog::WriteAll(const uint8_t* p, size_t n) {
  while (n > 0) {
    const ssize_t w = write(fd_, p, n);
    if (w > 0) {
      p += w;
      n -= static_cast<size_t>(w);
      continue;
    }
    if (w < 0 && errno != EAGAIN && errno != EINTR) return Dying("was disconnected (" + Errno() + ")");
    pollfd q{fd_, POLLOUT | POLLIN, 0};
    const int r = poll(&q, 1, kAnswerMs);
    if (r == 0) return Dying("stopped taking data (nothing for 2 s)");
    if (r > 0 && (q.revents & POLLIN) && !(q.revents & POLLOUT)) {
      uint8_t buf[65536];
      const ssize_t got = read(fd_, buf, sizeof buf);
      if (got > 0) rx_.insert(rx_.end(), buf, buf + got);
      if (got == 0) return Dying("was disconnected (end of data)");
    }
  }
  return true;
}

bool Serprog::FlushTx() {
  const bool ok = tx_.empty() || WriteAll(tx_.data(), tx_.size());
  tx_.clear();
  return ok;
}

// ---- commands and answers ----

bool Serprog::Send(const std::vector<uint8_t>& cmd, Entry e) {
  if (Dead()) return false;
  while (!inflight_.empty() && inflightBytes_ + cmd.size() > serbuf_)
    if (!ReceiveOne()) return false;
  tx_.insert(tx_.end(), cmd.begin(), cmd.end());
  e.bytes = static_cast<uint32_t>(cmd.size());
  inflightBytes_ += e.bytes;
  inflight_.push_back(std::move(e));
  return true;
}

bool Serprog::ReceiveOne(uint32_t* pollId) {
  if (!FlushTx()) return false;
  Entry e = std::move(inflight_.front());
  inflight_.pop_front();
  inflightBytes_ -= e.bytes;
  uint8_t b = 0;
  if (!ReadBytes(&b, 1)) return false;
  if (b == kNak) return Fail(name_ + " refused " + e.what + " (NAK)", false);
  if (b != kAck) {
    char hex[8];
    std::snprintf(hex, sizeof hex, "0x%02X", b);
    return Dying(std::string("answered ") + hex + " to " + e.what +
                 " where ACK or NAK was expected: it is out of step with this program");
  }
  answer_.resize(e.dataLen);
  if (!ReadBytes(answer_.data(), e.dataLen)) return false;
  uint32_t at = 0;
  for (const Piece& p : e.pieces) {
    if (p.dest) std::memcpy(p.dest, answer_.data() + at, p.len);
    at += p.len;
  }
  if (pollId) *pollId = e.pollId;
  return true;
}

// Every answer is taken in, also after a refusal: later answers may still be
// bound for the caller's buffers, which must not be written once it returns.
bool Serprog::Drain() {
  bool ok = FlushTx();
  while (!inflight_.empty() && !Dead()) ok = ReceiveOne() && ok;
  if (Dead()) {
    inflight_.clear();
    inflightBytes_ = 0;
  }
  return ok && !Dead();
}

bool Serprog::Call(std::vector<uint8_t> cmd, const char* what, uint8_t* answer, uint32_t len) {
  Entry e{what};
  e.dataLen = len;
  if (answer) e.pieces.push_back({answer, len});
  return Send(cmd, std::move(e)) && Drain();
}

bool Serprog::SpiOp(const uint8_t* w, uint32_t slen, std::vector<Piece> reads, uint32_t rlen, uint32_t pollId,
                    bool duplex) {
  std::vector<uint8_t> cmd{O_SPIOP};
  Put(cmd, slen, 3);
  Put(cmd, duplex ? 0 : rlen, 3);
  cmd.insert(cmd.end(), w, w + slen);
  Entry e{"an SPI operation (O_SPIOP)"};
  e.dataLen = rlen;
  e.pieces = std::move(reads);
  e.pollId = pollId;
  return Send(cmd, std::move(e));
}

// ---- frames ----

bool Serprog::HoldCs(bool held, const std::string& why) {
  if (held == held_) return true;
  if (held && !Has(S_CS_MODE))
    return Fail(name_ + " lacks S_CS_MODE (chip select held across operations), which " + why +
                    " needs; a newer serprog firmware has it",
                false);
  held_ = held;
  return Send({S_CS_MODE, static_cast<uint8_t>(held ? 1 : 0)}, Entry{"S_CS_MODE"});
}

// The next len bytes of the operation's read phase, as pieces.
std::vector<Serprog::Piece> Serprog::TakeReads(size_t& at, uint32_t& off, uint32_t len) {
  std::vector<Piece> r;
  while (len > 0) {
    const Piece& p = opReads_[at];
    const uint32_t k = std::min(len, p.len - off);
    r.push_back({p.dest ? p.dest + off : nullptr, k});
    len -= k;
    off += k;
    if (off == p.len) {
      at++;
      off = 0;
    }
  }
  return r;
}

// Sends the operation built so far; end: the frame ends with it. A frame
// that goes on, or that is larger than the device's limits, spans several
// operations with chip select held.
bool Serprog::EmitOp(bool end) {
  const uint32_t w = static_cast<uint32_t>(opOut_.size()), r = opRlen_;
  bool ok = true;
  if (w > 0 || r > 0) {
    std::string why;
    if (w > wrmax_)
      why = "a frame writing " + std::to_string(w) + " bytes (it takes " + std::to_string(wrmax_) +
            " per operation)";
    else if (r > rdmax_)
      why = "a frame reading " + std::to_string(r) + " bytes (it returns " + std::to_string(rdmax_) +
            " per operation)";
    else if (!end)
      why = "a frame that reads and then goes on";
    ok = why.empty() || HoldCs(true, why);
    uint32_t sent = 0;
    for (; ok && w - sent > wrmax_; sent += wrmax_) ok = SpiOp(opOut_.data() + sent, wrmax_, {}, 0);
    size_t at = 0;
    uint32_t off = 0, got = 0;
    do {
      const uint32_t k = std::min(r - got, rdmax_);
      if (ok) ok = SpiOp(opOut_.data() + sent, w - sent, TakeReads(at, off, k), k);
      sent = w;
      got += k;
    } while (ok && got < r);
  }
  if (ok && end) ok = HoldCs(false);
  opOut_.clear();
  opReads_.clear();
  opRlen_ = 0;
  return ok;
}

bool Serprog::Add(const uint8_t* out, uint8_t* in, uint32_t n, bool last) {
  if (Dead()) return false;
  bool ok = true;
  // Bytes before trailing 0xFF filler are command bytes; a transfer of that
  // shape is sent as those bytes and a read, which is what every 25-series
  // read and status command is.
  uint32_t k = 0;
  if (out && in) {
    k = n;
    while (k > 0 && out[k - 1] == 0xFF) k--;
  }
  if (in && k == n && n > 0) {
    // Sends and receives at once: only full duplex can do it.
    if (!Has(S_SPI_MODE))
      return Fail(name_ + " lacks S_SPI_MODE (full duplex), which a transfer that sends and receives " +
                      std::to_string(n) + " bytes needs; a newer serprog firmware has it",
                  false);
    if (n > wrmax_)
      return Fail(name_ + " takes " + std::to_string(wrmax_) + " bytes per operation, too few for a full-duplex "
                      "transfer of " + std::to_string(n),
                  false);
    if (!opOut_.empty() || opRlen_ > 0) ok = EmitOp(false);
    if (ok && !last) ok = HoldCs(true, "a frame that goes on after a full-duplex transfer");
    ok = ok && Send({S_SPI_MODE, 1}, Entry{"S_SPI_MODE"}) && SpiOp(out, n, {{in, n}}, n, 0, true) &&
         Send({S_SPI_MODE, 0}, Entry{"S_SPI_MODE"});
    return ok && (!last || HoldCs(false));
  }
  if (!in || k > 0) {
    if (opRlen_ > 0) ok = EmitOp(false);
    if (out)
      opOut_.insert(opOut_.end(), out, out + (in ? k : n));
    else
      opOut_.insert(opOut_.end(), n, 0xFF);
  }
  if (in) {
    std::memset(in, 0xFF, k);  // nothing meaningful comes back during command bytes
    opReads_.push_back({in + k, n - k});
    opRlen_ += n - k;
  }
  if (ok && last) ok = EmitOp(true);
  return ok;
}

bool Serprog::Sync() {
  if (Dead()) return false;
  bool ok = opRlen_ == 0 || EmitOp(false);
  return Drain() && ok;
}

int Serprog::Poll(const uint8_t* prefix, uint32_t prefixLen, uint8_t* in, uint32_t n, const PollCond& c) {
  if (Dead()) return kLinkFailed;
  if (prefixLen > wrmax_ || n > rdmax_) {
    Fail(name_ + " cannot carry a status poll of " + std::to_string(prefixLen + n) + " bytes in one operation",
         false);
    return kLinkFailed;
  }
  // While the chip stays busy, more polls travel ahead, so the device
  // answers the next while this program looks at the last; extra answers
  // are read and dropped later. A chip that is ready at once costs one.
  const uint32_t id = ++pollSeq_;
  const uint32_t most = std::max(1u, std::min(kMaxPollsAhead, serbuf_ / (7 + prefixLen)));
  uint32_t ahead = 1;
  const int64_t deadline = NowMs() + kPollLimitMs;
  uint32_t sent = 0, got = 0;
  for (;;) {
    while (sent - got < ahead && sent < c.maxRepeat) {
      if (!SpiOp(prefix, prefixLen, {}, n, id)) return kLinkFailed;
      sent++;
    }
    if (got == sent) return kPollNotMet;
    uint32_t doneId = 0;
    do {
      if (!ReceiveOne(&doneId)) return kLinkFailed;
    } while (doneId != id);
    got++;
    std::memcpy(in, answer_.data(), n);
    if (c.Met(in, n)) return static_cast<int>(got);
    if (got >= c.maxRepeat || NowMs() > deadline) return kPollNotMet;
    ahead = std::min(most, ahead * 2);
  }
}

// ---- opening ----

bool Serprog::OpenTty(const Config& c) {
  const speed_t rate = BaudConstant(c.baud);
  if (rate == B0)
    return Fail("PELLAM_BRIDGE: baud=" + std::to_string(c.baud) +
                    " is not a standard rate (9600, 19200, 38400, 57600, 115200, 230400, 460800, 500000, 921600, "
                    "1000000, 1500000, 2000000, 3000000, 4000000)",
                true);
  fd_ = open(c.device.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (fd_ < 0) return Dying("cannot be opened (" + Errno() + ")");
  // A second program interleaving its bytes would corrupt both jobs.
  if (flock(fd_, LOCK_EX | LOCK_NB) != 0) return Dying("is in use by another program");
  ioctl(fd_, TIOCEXCL);
  termios t{};
  if (tcgetattr(fd_, &t) != 0) return Dying("is not a serial port (" + Errno() + ")");
  // A fresh tty is canonical with flow control and echo: raw 8N1, or bytes
  // like 0x11, 0x13 and 0x0A are swallowed or changed.
  cfmakeraw(&t);
  t.c_cflag |= CLOCAL | CREAD;
  t.c_cflag &= ~(CRTSCTS | CSTOPB);
  t.c_iflag &= ~(IXON | IXOFF | IXANY);
  t.c_cc[VMIN] = 0;
  t.c_cc[VTIME] = 0;
  cfsetispeed(&t, rate);
  cfsetospeed(&t, rate);
  if (tcsetattr(fd_, TCSANOW, &t) != 0) return Dying("cannot be set to raw mode (" + Errno() + ")");
  tcflush(fd_, TCIOFLUSH);
  return true;
}

bool Serprog::ConnectTcp(const Config& c) {
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* list = nullptr;
  const int gai = getaddrinfo(c.device.c_str(), std::to_string(c.port).c_str(), &hints, &list);
  if (gai != 0) return Dying(std::string("cannot be found (") + gai_strerror(gai) + ")");
  std::string why = "no address";
  for (addrinfo* a = list; a && fd_ < 0; a = a->ai_next) {
    fd_ = socket(a->ai_family, a->ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC, a->ai_protocol);
    if (fd_ < 0) continue;
    int err = connect(fd_, a->ai_addr, a->ai_addrlen) == 0 ? 0 : errno;
    if (err == EINPROGRESS) {
      pollfd p{fd_, POLLOUT, 0};
      socklen_t len = sizeof err;
      err = poll(&p, 1, kConnectMs) == 1 && getsockopt(fd_, SOL_SOCKET, SO_ERROR, &err, &len) == 0 ? err : ETIMEDOUT;
    }
    if (err != 0) {
      why = std::strerror(err);
      close(fd_);
      fd_ = -1;
    }
  }
  freeaddrinfo(list);
  if (fd_ < 0) return Dying("cannot be reached (" + why + ")");
  const int one = 1;
  setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
  return true;
}

// NOPs finish a half-received command; then SYNCNOP until NAK ACK comes
// back, and once more, answered at once, so that nothing stale follows.
bool Serprog::GetInStep() {
  uint8_t b = 0;
  int r = 0;
  auto drain = [&] {
    const int64_t end = NowMs() + 1000;
    while ((r = ReadRaw(b, 50)) == 1 && NowMs() < end) {
    }
    return r >= 0;
  };
  const uint8_t nops[8] = {};
  if (!WriteAll(nops, sizeof nops) || !drain()) return false;
  const uint8_t syncnop = SYNCNOP;
  for (const int64_t deadline = NowMs() + kSyncMs; NowMs() < deadline;) {
    if (!WriteAll(&syncnop, 1)) return false;
    uint8_t prev = 0;
    bool seen = false;
    for (const int64_t wait = NowMs() + 300; !seen && (r = ReadRaw(b, 20)) >= 0 && NowMs() < wait;) {
      seen = r == 1 && prev == kNak && b == kAck;
      if (r == 1) prev = b;
    }
    if (r < 0) return false;
    if (!seen || !drain() || !WriteAll(&syncnop, 1)) continue;
    uint8_t two[2] = {};
    if ((r = ReadRaw(two[0], 500)) == 1 && (r = ReadRaw(two[1], 500)) == 1 && two[0] == kNak && two[1] == kAck)
      return true;
    if (r < 0) return false;
  }
  return Dying("does not answer the serprog sync sequence (no NAK ACK within 3 s): is it a serprog device, at "
               "the right baud rate, done booting?");
}

bool Serprog::Setup(const Config& c) {
  uint8_t a[16] = {};
  if (!Call({Q_IFACE}, "Q_IFACE", a, 2)) return false;
  if (Le(a, 2) != 1)
    return Dying("speaks serprog interface version " + std::to_string(Le(a, 2)) + "; this program speaks version 1");
  if (!Call({Q_CMDMAP}, "Q_CMDMAP", cmdmap_, 32)) return false;
  if (!Has(O_SPIOP)) return Dying("lacks O_SPIOP: it cannot run SPI operations");
  if (Has(Q_BUSTYPE) && (!Call({Q_BUSTYPE}, "Q_BUSTYPE", a, 1) || !(a[0] & kBusSpi)))
    return Dying("does not offer the SPI bus");
  if (Has(S_BUSTYPE) && !Call({S_BUSTYPE, kBusSpi}, "S_BUSTYPE")) return Dying("refused to switch to the SPI bus");
  serbuf_ = 1;  // unknown: wait for each answer before the next command
  if (Has(Q_SERBUF) && Call({Q_SERBUF}, "Q_SERBUF", a, 2)) serbuf_ = std::max(1u, Le(a, 2));
  if (Has(Q_WRNMAXLEN) && Call({Q_WRNMAXLEN}, "Q_WRNMAXLEN", a, 3)) wrmax_ = Le(a, 3) ? Le(a, 3) : kUnbounded;
  if (Has(Q_RDNMAXLEN) && Call({Q_RDNMAXLEN}, "Q_RDNMAXLEN", a, 3)) rdmax_ = Le(a, 3) ? Le(a, 3) : kUnbounded;
  if (Dead()) return false;
  char pgm[17] = {};
  if (Has(Q_PGMNAME) && Call({Q_PGMNAME}, "Q_PGMNAME", a, 16)) std::memcpy(pgm, a, 16);
  if (c.cs >= 0) {
    if (!Has(S_SPI_CS))
      return Dying("lacks S_SPI_CS, which cs=" + std::to_string(c.cs) + " needs; a newer serprog firmware has it");
    if (!Call({S_SPI_CS, static_cast<uint8_t>(c.cs)}, "S_SPI_CS"))
      return Dying("has no chip select " + std::to_string(c.cs));
  }
  if (Has(S_PIN_STATE) && !Call({S_PIN_STATE, 1}, "S_PIN_STATE")) return Dying("refused to drive its pins");
  info_ = name_ + ": \"" + pgm + "\", serial buffer " + std::to_string(serbuf_) + ", write limit " +
          std::to_string(wrmax_) + ", read limit " + std::to_string(rdmax_) + ", commands";
  char op[8];
  for (int i = 0; i < 256; i++)
    if (Has(static_cast<uint8_t>(i))) info_ += (std::snprintf(op, sizeof op, " %02X", i), op);
  return !Dead();
}

bool Serprog::Open(const Config& c, std::string& error) {
  Shut();
  BeginOpen(&error);
  name_ = "serprog device " + (c.port ? c.device + ":" + std::to_string(c.port) : c.device);
  std::memset(cmdmap_, 0, sizeof cmdmap_);
  serbuf_ = 1;
  wrmax_ = kUnqueriedWriteMax;
  rdmax_ = kUnbounded;
  const bool ok = (c.port ? ConnectTcp(c) : OpenTty(c)) && GetInStep() && Setup(c);
  EndOpen();
  if (!ok) Shut();
  return ok;
}

uint32_t Serprog::SetSpeed(uint32_t hz) {
  if (fd_ < 0 || hz == 0 || !Has(S_SPI_FREQ)) return 0;
  std::vector<uint8_t> cmd{S_SPI_FREQ};
  Put(cmd, hz, 4);
  uint8_t a[4] = {};
  return Call(cmd, "S_SPI_FREQ", a, 4) ? Le(a, 4) : 0;
}

void Serprog::Close() {
  if (fd_ >= 0 && !Dead()) {
    if (!opOut_.empty() || opRlen_ > 0 || held_) EmitOp(true);
    Drain();
    if (Has(S_PIN_STATE)) Call({S_PIN_STATE, 0}, "S_PIN_STATE");
  }
  Shut();
}

void Serprog::Shut() {
  if (fd_ >= 0) close(fd_);
  fd_ = -1;
  tx_.clear();
  inflight_.clear();
  inflightBytes_ = 0;
  rx_.clear();
  rxAt_ = 0;
  opOut_.clear();
  opReads_.clear();
  opRlen_ = 0;
  held_ = false;
}

}  // namespace

Link* NewSerprog() { return new (std::nothrow) Serprog; }

}  // namespace bridge
