// A serprog adapter with the emulated chip behind it, served on a
// pseudo-terminal or a local TCP port: the device the bridge's tests and
// benchmarks talk to. Options model how real firmwares differ (limits,
// missing commands, USB latency, a small serial buffer) and how they fail
// (hanging, babbling, being unplugged).
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <string>
#include <vector>

#include "tarlosim/chip.h"
#include "tarlosim/devfiles.h"

namespace {

using tarlosim::Chip;

constexpr uint8_t kAck = 0x06, kNak = 0x15;
enum : uint8_t {
  kNop = 0x00, kQIface = 0x01, kQCmdMap = 0x02, kQPgmName = 0x03, kQSerBuf = 0x04, kQBusType = 0x05,
  kQWrNMaxLen = 0x08, kSyncNop = 0x10, kQRdNMaxLen = 0x11, kSBusType = 0x12, kOSpiOp = 0x13,
  kSSpiFreq = 0x14, kSPinState = 0x15, kSSpiCs = 0x16, kSSpiMode = 0x17, kSCsMode = 0x18,
};
constexpr uint8_t kServed[] = {kNop, kQIface, kQCmdMap, kQPgmName, kQSerBuf, kQBusType, kQWrNMaxLen, kSyncNop,
                               kQRdNMaxLen, kSBusType, kOSpiOp, kSSpiFreq, kSPinState, kSSpiCs, kSSpiMode, kSCsMode};
constexpr uint8_t kBusSpi = 0x08;
constexpr uint32_t kLenLimit = 1u << 24;    // a 24-bit length field's 0
constexpr uint32_t kUncheckedBuffer = 4096;  // what a firmware without limits copies slen into
constexpr uint32_t kMinHz = 100000, kMaxHz = 48000000;

// The stats file's counters, in the order of its lines.
enum Stat { kCommands, kSpiops, kFromHost, kToHost, kNaks, kOverflows, kViolations, kSessions, kStatCount };
const char* const kStatKeys[kStatCount] = {"commands", "spiops",    "bytes_from_host", "bytes_to_host",
                                           "naks",     "overflows", "violations",      "sessions"};

struct Options {
  std::string pty, portFile, chipHex = "C22018", flash, trace, stats;
  unsigned iface = 1, chipCs = 0;
  uint32_t serbuf = 65535, wrmax = 4096, rdmax = 0;
  bool noLimits = false, silentUnknown = false;
  std::vector<unsigned> drop;
  uint64_t latencyNs = 0, stopAfter = UINT64_MAX, garbageAfter = UINT64_MAX, vanishAfter = UINT64_MAX;
};

// One answer waiting for its time. The command it answers (cmdBytes long)
// occupies the serial buffer until the answer has gone out.
struct Answer {
  uint64_t due;
  std::vector<uint8_t> bytes;
  size_t cmdBytes;
  bool vanish;  // the device disappears here, after everything before it
};

uint32_t Le(const uint8_t* p, int n) {
  uint32_t v = 0;
  for (int i = n - 1; i >= 0; i--) v = v << 8 | p[i];
  return v;
}
void PutLe(std::vector<uint8_t>& a, uint32_t v, int n) {
  for (int i = 0; i < n; i++) a.push_back(static_cast<uint8_t>(v >> (8 * i)));
}

class Device {
 public:
  explicit Device(Options o) : o_(std::move(o)) {
    for (uint8_t op : kServed) {
      const bool limit = op == kQSerBuf || op == kQWrNMaxLen || op == kQRdNMaxLen;
      if ((o_.noLimits && limit) || std::count(o_.drop.begin(), o_.drop.end(), op)) continue;
      map_[op / 8] |= static_cast<uint8_t>(1u << (op % 8));
    }
  }
  bool Start();
  int Run();

 private:
  bool InMap(uint8_t op) const { return map_[op / 8] >> (op % 8) & 1; }
  size_t Need() const;
  bool Echoing();
  void Receive(const uint8_t* p, size_t n, uint64_t now);
  void Execute(uint64_t now);
  void SpiOp(const uint8_t* c, std::vector<uint8_t>& a);
  void Flush(uint64_t now);
  void Select();
  void Deselect() { tarlosim::EndFrame(chip_, trace_); }
  void StartSession();
  void EndSession(const char* why);
  void Disconnect();
  void Vanish();
  void Nak(std::vector<uint8_t>& a, const char* why) {
    stats_[kNaks]++;
    Note("# NAK %s", why);
    a.push_back(kNak);
  }
  void Note(const char* fmt, ...) __attribute__((format(printf, 2, 3)));

  Options o_;
  Chip chip_;
  FILE* trace_ = nullptr;
  uint8_t map_[32] = {};
  int sigFd_ = -1, listen_ = -1, conn_ = -1, keepSlave_ = -1;
  std::vector<uint8_t> in_;  // the command being received
  std::deque<Answer> outq_;
  size_t outOff_ = 0, queuedCmdBytes_ = 0;
  bool sessionOn_ = false, fullDuplex_ = false, quit_ = false, echoNoted_ = false;
  unsigned cs_ = 0, csMode_ = 0;
  uint64_t stats_[kStatCount] = {};
};

void Device::Note(const char* fmt, ...) {
  if (!trace_) return;
  va_list ap;
  va_start(ap, fmt);
  std::vfprintf(trace_, fmt, ap);
  va_end(ap);
  std::fputc('\n', trace_);
}

bool Device::Start() {
  std::string err;
  if (!tarlosim::PowerUpFromFile(chip_, o_.chipHex, o_.flash, err)) {
    std::fprintf(stderr, "tarlosim-serprog: %s\n", err.c_str());
    return false;
  }
  if (!o_.trace.empty() && !(trace_ = std::fopen(o_.trace.c_str(), "a"))) {
    std::perror(o_.trace.c_str());
    return false;
  }
  signal(SIGPIPE, SIG_IGN);
  prctl(PR_SET_TIMERSLACK, 1000UL);  // answers keep their latency to the microsecond
  sigset_t s;
  sigemptyset(&s);
  sigaddset(&s, SIGTERM);
  sigaddset(&s, SIGINT);
  sigprocmask(SIG_BLOCK, &s, nullptr);
  sigFd_ = signalfd(-1, &s, SFD_CLOEXEC);
  std::string ready, text;  // the file announcing us and what it says
  if (!o_.pty.empty()) {
    conn_ = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    const char* slave = conn_ >= 0 && grantpt(conn_) == 0 && unlockpt(conn_) == 0 ? ptsname(conn_) : nullptr;
    // Our own slave fd keeps the master readable between host sessions. The
    // slave's modes are left as a fresh tty has them: setting up raw mode is
    // the host's job.
    if (slave) keepSlave_ = open(slave, O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (keepSlave_ < 0) return std::perror("pseudo-terminal"), false;
    fcntl(conn_, F_SETFL, O_NONBLOCK);
    const std::string tmp = o_.pty + ".tmp" + std::to_string(getpid());
    unlink(tmp.c_str());
    if (symlink(slave, tmp.c_str()) != 0 || rename(tmp.c_str(), o_.pty.c_str()) != 0)
      return std::perror(o_.pty.c_str()), false;
  } else {
    listen_ = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof a;
    const int one = 1;
    setsockopt(listen_, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    if (bind(listen_, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0 || listen(listen_, 4) != 0 ||
        getsockname(listen_, reinterpret_cast<sockaddr*>(&a), &len) != 0)
      return std::perror("listen"), false;
    const std::string port = std::to_string(ntohs(a.sin_port)) + "\n";
    if (!tarlosim::ReplaceFile(o_.portFile, port.data(), port.size())) return std::perror(o_.portFile.c_str()), false;
  }
  return true;
}

// The whole length of the command being received, as far as its bytes so
// far tell (an operation's length is known once its header is in).
size_t Device::Need() const {
  if (in_.empty()) return 1;
  const uint8_t op = in_[0];
  if (!InMap(op)) return 1;  // the device cannot know what would follow
  switch (op) {
    case kSBusType: case kSPinState: case kSSpiCs: case kSSpiMode: case kSCsMode: return 2;
    case kSSpiFreq: return 5;
    case kOSpiOp: return in_.size() < 7 ? 7 : 7 + static_cast<size_t>(Le(&in_[1], 3));
  }
  return 1;
}

// A terminal still in its default modes echoes every answer back as new
// input, and the device would talk to itself for ever: it hears nothing
// until the host has switched echo off (raw mode does).
bool Device::Echoing() {
  termios t;
  const bool echo = keepSlave_ >= 0 && tcgetattr(keepSlave_, &t) == 0 && (t.c_lflag & ECHO);
  if (echo && !echoNoted_) Note("# the terminal echoes: input ignored until the host sets raw mode");
  echoNoted_ = echo;
  return echo;
}

void Device::Receive(const uint8_t* p, size_t n, uint64_t now) {
  stats_[kFromHost] += n;
  if (Echoing()) return;
  if (!sessionOn_) StartSession();
  while (n > 0 && !quit_ && conn_ >= 0) {
    const size_t k = std::min(Need() - in_.size(), n);
    const size_t held = queuedCmdBytes_ + in_.size();
    // A real device's buffer fills while answers wait; what does not fit is
    // lost, and only a single command may be longer than the buffer.
    if (!outq_.empty() && held + k > o_.serbuf) {
      const size_t room = held < o_.serbuf ? o_.serbuf - held : 0;
      in_.insert(in_.end(), p, p + room);
      stats_[kOverflows]++;
      Note("# overflow: %zu bytes lost (%zu unanswered)", n - room, held);
      return;
    }
    in_.insert(in_.end(), p, p + k);
    p += k;
    n -= k;
    if (in_.size() == Need()) {
      Execute(now);
      in_.clear();
      Flush(now);
    }
  }
}

void Device::Execute(uint64_t now) {
  const uint8_t* c = in_.data();
  const uint64_t count = ++stats_[kCommands];
  std::vector<uint8_t> a;
  if (count > o_.stopAfter) return;
  if (count > o_.garbageAfter) {
    a.push_back(0x00);
  } else if (!InMap(c[0])) {
    if (o_.silentUnknown) return;
    Nak(a, "opcode not served");
  } else {
    switch (c[0]) {
      case kNop: a.push_back(kAck); break;
      case kQIface: a.push_back(kAck), PutLe(a, o_.iface, 2); break;
      case kQCmdMap: a.push_back(kAck), a.insert(a.end(), map_, map_ + 32); break;
      case kQPgmName: {
        const char name[16] = "tarlosim";
        a.push_back(kAck), a.insert(a.end(), name, name + 16);
        break;
      }
      case kQSerBuf: a.push_back(kAck), PutLe(a, std::min<uint32_t>(o_.serbuf, 0xFFFF), 2); break;
      case kQBusType: a = {kAck, kBusSpi}; break;
      case kQWrNMaxLen: a.push_back(kAck), PutLe(a, o_.wrmax, 3); break;
      case kQRdNMaxLen: a.push_back(kAck), PutLe(a, o_.rdmax, 3); break;
      case kSyncNop: a = {kNak, kAck}; break;
      case kSBusType:
        if (c[1] == kBusSpi) a.push_back(kAck);
        else Nak(a, "bus type");
        break;
      case kOSpiOp: SpiOp(c, a); break;
      case kSSpiFreq: {
        const uint32_t hz = Le(c + 1, 4);
        if (hz == 0) {
          Nak(a, "clock 0");
          break;
        }
        const uint32_t set = std::clamp(hz / 1000 * 1000, kMinHz, kMaxHz);
        chip_.SetSpeedKHz(set / 1000);
        a.push_back(kAck), PutLe(a, set, 4);
        break;
      }
      case kSPinState:
        // Drivers off ends the session: the contents are saved before the
        // ACK that the host waits for at close.
        if (c[1] == 0) EndSession("pins off");
        a.push_back(kAck);
        break;
      case kSSpiCs:
        if (c[1] > 3) {
          Nak(a, "chip select");
          break;
        }
        Deselect();
        cs_ = c[1];
        if (csMode_ == 1) Select();
        a.push_back(kAck);
        break;
      case kSSpiMode:
        if (c[1] > 1) Nak(a, "SPI mode");
        else fullDuplex_ = c[1] == 1, a.push_back(kAck);
        break;
      case kSCsMode:
        if (c[1] > 2) {
          Nak(a, "chip-select mode");
          break;
        }
        if (c[1] != csMode_) {
          Deselect();
          csMode_ = c[1];
          if (csMode_ == 1) Select();
        }
        a.push_back(kAck);
        break;
    }
  }
  outq_.push_back({now + o_.latencyNs, std::move(a), in_.size(), false});
  queuedCmdBytes_ += in_.size();
  if (count == o_.vanishAfter) outq_.push_back({now + o_.latencyNs, {}, 0, true});
}

void Device::Select() {
  if (cs_ == o_.chipCs && !chip_.Selected()) chip_.Select();
}

void Device::SpiOp(const uint8_t* c, std::vector<uint8_t>& a) {
  stats_[kSpiops]++;
  const uint32_t slen = Le(c + 1, 3), rlen = Le(c + 4, 3);
  const uint32_t wr = o_.wrmax ? o_.wrmax : kLenLimit, rd = o_.rdmax ? o_.rdmax : kLenLimit;
  if (o_.noLimits ? slen > kUncheckedBuffer : slen > wr || rlen > rd) {
    stats_[kViolations]++;
    Note("# violation: operation writes %u and reads %u bytes, over the device's limits", slen, rlen);
    return Nak(a, "operation too long");
  }
  if (csMode_ == 0) Select();
  // Another chip select, or chip select held inactive: nothing reaches the
  // chip and the data line floats high.
  const bool on = chip_.Selected();
  a.push_back(kAck);
  const size_t base = a.size(), echo = fullDuplex_ ? slen : 0;
  a.resize(base + echo + rlen, 0xFF);
  if (on) {
    chip_.Clock(c + 7, fullDuplex_ ? a.data() + base : nullptr, slen);
    chip_.Clock(nullptr, a.data() + base + echo, rlen);
  }
  if (csMode_ == 0) Deselect();
}

void Device::Flush(uint64_t now) {
  while (!outq_.empty() && outq_.front().due <= now && conn_ >= 0) {
    Answer& f = outq_.front();
    if (f.vanish) return Vanish();
    while (outOff_ < f.bytes.size()) {
      const ssize_t w = write(conn_, f.bytes.data() + outOff_, f.bytes.size() - outOff_);
      if (w < 0 && errno == EINTR) continue;
      if (w < 0 && errno == EAGAIN) return;  // the host is not reading: wait for room
      if (w < 0) return Disconnect();
      outOff_ += static_cast<size_t>(w);
      stats_[kToHost] += static_cast<uint64_t>(w);
    }
    queuedCmdBytes_ -= f.cmdBytes;
    outOff_ = 0;
    outq_.pop_front();
  }
}

void Device::StartSession() {
  sessionOn_ = true;
  Note("# session %llu start", static_cast<unsigned long long>(++stats_[kSessions]));
}

void Device::EndSession(const char* why) {
  Deselect();
  if (sessionOn_) Note("# session end (%s)", why);
  sessionOn_ = false;
  tarlosim::SaveContents(chip_, o_.flash);
  std::vector<std::pair<const char*, uint64_t>> kv;
  for (int i = 0; i < kStatCount; i++) kv.emplace_back(kStatKeys[i], stats_[i]);
  tarlosim::WriteStatsFile(o_.stats, kv);
  if (trace_) std::fflush(trace_);
}

// A TCP client left (or its socket failed): the session ends, and the next
// client starts from an empty line.
void Device::Disconnect() {
  EndSession("client left");
  if (listen_ >= 0) close(conn_), conn_ = -1;
  in_.clear();
  outq_.clear();
  outOff_ = queuedCmdBytes_ = 0;
}

// The device is unplugged: a TCP client loses its connection, a terminal
// disappears together with the program.
void Device::Vanish() {
  Note("# device unplugged");
  Disconnect();
  if (listen_ < 0) {
    close(conn_), close(keepSlave_);
    conn_ = keepSlave_ = -1;
    unlink(o_.pty.c_str());
    quit_ = true;
  }
}

int Device::Run() {
  uint8_t buf[1 << 16];
  while (!quit_) {
    pollfd fds[2] = {{sigFd_, POLLIN, 0}, {-1, 0, 0}};
    const uint64_t now = tarlosim::WallNs();
    if (conn_ >= 0) {
      const bool blocked = !outq_.empty() && outq_.front().due <= now;
      fds[1] = {conn_, static_cast<short>(POLLIN | (blocked ? POLLOUT : 0)), 0};
    } else {
      fds[1] = {listen_, POLLIN, 0};
    }
    timespec ts{}, *wait = nullptr;
    if (!outq_.empty() && outq_.front().due > now) {
      const uint64_t d = outq_.front().due - now;
      ts = {static_cast<time_t>(d / 1000000000), static_cast<long>(d % 1000000000)};
      wait = &ts;
    }
    if (ppoll(fds, 2, wait, nullptr) < 0 && errno != EINTR) return std::perror("poll"), 1;
    if (fds[0].revents) break;
    if (conn_ < 0 && fds[1].revents) {
      conn_ = accept4(listen_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
      const int one = 1;
      if (conn_ >= 0) setsockopt(conn_, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one), StartSession();
      continue;
    }
    if (conn_ >= 0 && (fds[1].revents & (POLLIN | POLLHUP | POLLERR))) {
      const ssize_t r = read(conn_, buf, sizeof buf);
      if (r > 0) Receive(buf, static_cast<size_t>(r), tarlosim::WallNs());
      else if (listen_ >= 0 && (r == 0 || (errno != EAGAIN && errno != EINTR))) Disconnect();
    }
    Flush(tarlosim::WallNs());
  }
  if (!quit_) {  // a signal: save and leave
    EndSession("signal");
    if (!o_.pty.empty()) unlink(o_.pty.c_str());
  }
  if (trace_) std::fclose(trace_);
  return 0;
}

[[noreturn]] void Usage(const char* why) {
  std::fprintf(stderr,
               "tarlosim-serprog: %s\n"
               "usage: tarlosim-serprog (--pty LINK | --tcp PORTFILE) [--chip HEXID] [--flash FILE]\n"
               "  [--trace FILE] [--stats FILE] [--iface N] [--chip-cs N] [--serbuf N] [--wrmax N]\n"
               "  [--rdmax N] [--no-limits] [--drop OP,OP...] [--silent-unknown] [--latency-us N]\n"
               "  [--stop-after N] [--garbage-after N] [--vanish-after N]\n",
               why);
  std::exit(2);
}

uint64_t Number(const char* s, uint64_t max) {
  char* end = nullptr;
  errno = 0;
  const unsigned long long v = std::strtoull(s, &end, 0);
  if (errno || end == s || *end || v > max) Usage((std::string("bad number: ") + s).c_str());
  return v;
}

}  // namespace

int main(int argc, char** argv) {
  Options o;
  for (int i = 1; i < argc; i++) {
    const std::string a = argv[i];
    if (a == "--no-limits") { o.noLimits = true; continue; }
    if (a == "--silent-unknown") { o.silentUnknown = true; continue; }
    if (i + 1 >= argc) Usage(("unknown option or missing value: " + a).c_str());
    const char* v = argv[++i];
    if (a == "--pty") o.pty = v;
    else if (a == "--tcp") o.portFile = v;
    else if (a == "--chip") o.chipHex = v;
    else if (a == "--flash") o.flash = v;
    else if (a == "--trace") o.trace = v;
    else if (a == "--stats") o.stats = v;
    else if (a == "--iface") o.iface = static_cast<unsigned>(Number(v, 0xFFFF));
    else if (a == "--chip-cs") o.chipCs = static_cast<unsigned>(Number(v, 3));
    else if (a == "--serbuf") o.serbuf = static_cast<uint32_t>(Number(v, UINT32_MAX));
    else if (a == "--wrmax") o.wrmax = static_cast<uint32_t>(Number(v, kLenLimit - 1));
    else if (a == "--rdmax") o.rdmax = static_cast<uint32_t>(Number(v, kLenLimit - 1));
    else if (a == "--latency-us") o.latencyNs = Number(v, UINT32_MAX) * 1000;
    else if (a == "--stop-after") o.stopAfter = Number(v, UINT64_MAX);
    else if (a == "--garbage-after") o.garbageAfter = Number(v, UINT64_MAX);
    else if (a == "--vanish-after") o.vanishAfter = Number(v, UINT64_MAX);
    else if (a == "--drop") {
      std::string list = v;
      for (size_t p = 0; p <= list.size();) {
        const size_t q = std::min(list.find(',', p), list.size());
        o.drop.push_back(static_cast<unsigned>(Number(list.substr(p, q - p).c_str(), 0xFF)));
        p = q + 1;
      }
    } else Usage(("unknown option: " + a).c_str());
  }
  if (o.pty.empty() == o.portFile.empty()) Usage("give one of --pty and --tcp");
  Device d(std::move(o));
  return d.Start() ? d.Run() : 1;
}
