// Linux spidev, with the target's reset on a GPIO line. Transfers are
// queued and sent as few SPI_IOC_MESSAGE calls as the driver takes: several
// commands per call with cs_change between them, each call within the
// driver's bounce buffers (bufsiz) and the kernel's transfer count.
#include <fcntl.h>
#include <linux/gpio.h>
#include <linux/spi/spidev.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "bridge/link.h"

namespace bridge {

namespace {

constexpr const char* kBufsizPath = "/sys/module/spidev/parameters/bufsiz";
constexpr uint32_t kDefaultBufsiz = 4096;
// The strictest DMA alignment in use: each transfer counts against bufsiz
// rounded up to it.
constexpr uint32_t kAlign = 128;
// 512 transfers no longer fit the ioctl's size field.
constexpr size_t kMaxTransfers = 511;

uint32_t Rounded(uint32_t n) { return (n + kAlign - 1) / kAlign * kAlign; }

class Spidev final : public Link {
 public:
  ~Spidev() override { Close(); }
  bool Open(const Config& c, std::string& error) override;
  void Close() override;
  uint32_t SetSpeed(uint32_t hz) override;
  bool Add(const uint8_t* out, uint8_t* in, uint32_t n, bool last) override;
  bool Sync() override;
  int Poll(const uint8_t* prefix, uint32_t prefixLen, uint8_t* in, uint32_t n, const PollCond& c) override;
  void SetReset(bool active) override;

 private:
  struct Xfer {
    uint32_t tx;  // offset in txData_, or kNoTx
    uint8_t* rx;
    uint32_t len;
    bool ends;  // chip select is released after it
  };
  static constexpr uint32_t kNoTx = 0xFFFFFFFFu;

  bool Queue(const uint8_t* tx, bool fill, uint8_t* rx, uint32_t len, bool ends);
  bool Flush();
  uint32_t MaxLen() const { return bufsiz_ / kAlign * kAlign; }
  bool Dying(const std::string& what) { return Fail(name_ + " " + what, true); }
  bool RequestResetLine(const Config& c);

  int fd_ = -1, lineFd_ = -1;
  std::string name_, lineName_;
  bool activeLow_ = true;
  uint32_t speedHz_ = 0;  // 0: the driver's own
  uint32_t bufsiz_ = kDefaultBufsiz;
  std::vector<Xfer> queue_;
  std::vector<uint8_t> txData_;
  uint32_t txSum_ = 0, rxSum_ = 0;
  bool selected_ = false;  // the last call left chip select active
};

// tx: the bytes to send (null with fill: 0xFF; null without: none).
bool Spidev::Queue(const uint8_t* tx, bool fill, uint8_t* rx, uint32_t len, bool ends) {
  const bool sends = tx || fill;
  const uint32_t t = sends ? Rounded(len) : 0, r = rx ? Rounded(len) : 0;
  if (queue_.size() == kMaxTransfers || txSum_ + t > bufsiz_ || rxSum_ + r > bufsiz_)
    if (!Flush()) return false;
  Xfer x{kNoTx, rx, len, ends};
  if (sends) {
    x.tx = static_cast<uint32_t>(txData_.size());
    if (tx)
      txData_.insert(txData_.end(), tx, tx + len);
    else
      txData_.insert(txData_.end(), len, 0xFF);
  }
  queue_.push_back(x);
  txSum_ += t;
  rxSum_ += r;
  return true;
}

bool Spidev::Add(const uint8_t* out, uint8_t* in, uint32_t n, bool last) {
  if (Dead()) return false;
  if (n == 0) {
    if (!last) return true;
    if (!queue_.empty()) {
      queue_.back().ends = true;
      return true;
    }
    // The frame began in an earlier call: an empty transfer ends it.
    return !selected_ || Queue(nullptr, false, nullptr, 0, true);
  }
  // Pieces of one transfer fit the bounce buffers; chip select stays active
  // between them.
  for (uint32_t at = 0; at < n;) {
    const uint32_t k = std::min(n - at, MaxLen());
    if (!Queue(out ? out + at : nullptr, !out && !in, in ? in + at : nullptr, k, last && at + k == n)) return false;
    at += k;
  }
  return true;
}

bool Spidev::Flush() {
  if (queue_.empty()) return !Dead();
  std::vector<spi_ioc_transfer> msg(queue_.size());
  for (size_t i = 0; i < queue_.size(); i++) {
    const Xfer& x = queue_[i];
    spi_ioc_transfer& t = msg[i];
    std::memset(&t, 0, sizeof t);
    t.tx_buf = x.tx == kNoTx ? 0 : reinterpret_cast<uintptr_t>(txData_.data() + x.tx);
    t.rx_buf = reinterpret_cast<uintptr_t>(x.rx);
    t.len = x.len;
    t.speed_hz = speedHz_;
    t.bits_per_word = 8;
    // Between commands cs_change releases chip select; on the last transfer
    // it keeps chip select for the next call, which goes on with the frame.
    const bool lastInCall = i + 1 == queue_.size();
    t.cs_change = x.ends != lastInCall ? 1 : 0;
  }
  const bool held = !queue_.back().ends;
  const int r = ioctl(fd_, SPI_IOC_MESSAGE(msg.size()), msg.data());
  if (r < 0 && errno == EMSGSIZE && bufsiz_ > kAlign) {
    // Refused before anything was clocked: the driver's buffer is smaller
    // than assumed. Queue the same transfers again in smaller calls.
    std::vector<Xfer> again;
    again.swap(queue_);
    std::vector<uint8_t> data;
    data.swap(txData_);
    bufsiz_ /= 2;
    txSum_ = rxSum_ = 0;
    for (const Xfer& x : again)
      if (!Add(x.tx == kNoTx ? nullptr : data.data() + x.tx, x.rx, x.len, x.ends)) return false;
    return Flush();
  }
  queue_.clear();
  txData_.clear();
  txSum_ = rxSum_ = 0;
  if (r < 0) return Dying("failed a transfer (" + Errno() + ")");
  selected_ = held;
  return true;
}

bool Spidev::Sync() { return Flush(); }

int Spidev::Poll(const uint8_t* prefix, uint32_t prefixLen, uint8_t* in, uint32_t n, const PollCond& c) {
  const int64_t deadline = NowMs() + kPollLimitMs;
  for (uint32_t reps = 1; reps <= c.maxRepeat; reps++) {
    // The first poll goes in one call with what is queued before it.
    if (!Add(prefix, nullptr, prefixLen, false) || !Add(nullptr, in, n, true) || !Flush()) return kLinkFailed;
    if (c.Met(in, n)) return static_cast<int>(reps);
    if (NowMs() > deadline) break;
  }
  return kPollNotMet;
}

uint32_t Spidev::SetSpeed(uint32_t hz) {
  if (fd_ < 0 || hz == 0) return 0;
  if (ioctl(fd_, SPI_IOC_WR_MAX_SPEED_HZ, &hz) != 0) {
    Fail(name_ + " refused the clock of " + std::to_string(hz) + " Hz (" + Errno() + ")", false);
    return 0;
  }
  speedHz_ = hz;
  return hz;
}

bool Spidev::RequestResetLine(const Config& c) {
  lineName_ = "reset line " + c.resetChip + ":" + std::to_string(c.resetLine);
  activeLow_ = c.resetActiveLow;
  const int chip = open(c.resetChip.c_str(), O_RDWR | O_CLOEXEC);
  if (chip < 0) return Fail(lineName_ + ": the GPIO chip cannot be opened (" + Errno() + ")", true);
  gpio_v2_line_request req{};
  req.offsets[0] = c.resetLine;
  req.num_lines = 1;
  std::strncpy(req.consumer, "pellam-spi-bridge", sizeof req.consumer - 1);
  req.config.flags = GPIO_V2_LINE_FLAG_OUTPUT;
  req.config.num_attrs = 1;
  req.config.attrs[0].attr.id = GPIO_V2_LINE_ATTR_ID_OUTPUT_VALUES;
  req.config.attrs[0].attr.values = activeLow_ ? 1 : 0;  // out of reset until the program says otherwise
  req.config.attrs[0].mask = 1;
  const int r = ioctl(chip, GPIO_V2_GET_LINE_IOCTL, &req);
  const int err = errno;
  close(chip);
  if (r < 0)
    return Fail(lineName_ + " cannot be requested (" + std::strerror(err) +
                    (err == EBUSY ? ": another program holds it)" : ")"),
                true);
  lineFd_ = req.fd;
  return true;
}

void Spidev::SetReset(bool active) {
  if (lineFd_ < 0) return;
  gpio_v2_line_values v{};
  v.bits = active == activeLow_ ? 0 : 1;
  v.mask = 1;
  if (ioctl(lineFd_, GPIO_V2_LINE_SET_VALUES_IOCTL, &v) != 0) Fail(lineName_ + " cannot be set (" + Errno() + ")", false);
}

bool Spidev::Open(const Config& c, std::string& error) {
  Close();
  BeginOpen(&error);
  name_ = "spidev device " + c.device;
  bufsiz_ = kDefaultBufsiz;
  speedHz_ = 0;
  selected_ = false;
  bool ok = true;
  fd_ = open(c.device.c_str(), O_RDWR | O_CLOEXEC);
  if (fd_ < 0) {
    ok = Dying("cannot be opened (" + Errno() + ")");
  } else if (flock(fd_, LOCK_EX | LOCK_NB) != 0) {
    ok = Dying("is in use by another program");
  } else {
    uint8_t mode = SPI_MODE_0, bits = 8;
    if (ioctl(fd_, SPI_IOC_WR_MODE, &mode) != 0 || ioctl(fd_, SPI_IOC_WR_BITS_PER_WORD, &bits) != 0)
      ok = Dying("refused SPI mode 0 with 8-bit words (" + Errno() + "): is it a spidev device?");
  }
  if (ok) {
    const int f = open(kBufsizPath, O_RDONLY | O_CLOEXEC);
    char text[32] = {};
    if (f >= 0 && read(f, text, sizeof text - 1) > 0 && std::atoi(text) >= static_cast<int>(kAlign))
      bufsiz_ = static_cast<uint32_t>(std::atoi(text));
    if (f >= 0) close(f);
    info_ = name_ + ": bufsiz " + std::to_string(bufsiz_) + (f < 0 ? " (assumed)" : "");
  }
  if (ok && !c.resetChip.empty()) ok = RequestResetLine(c);
  EndOpen();
  if (!ok) {
    if (fd_ >= 0) close(fd_);
    fd_ = -1;
  }
  return ok;
}

void Spidev::Close() {
  if (fd_ < 0) return;
  if (!Dead()) {
    if (selected_ && queue_.empty()) Queue(nullptr, false, nullptr, 0, true);
    if (!queue_.empty()) queue_.back().ends = true;
    Flush();
  }
  queue_.clear();
  txData_.clear();
  txSum_ = rxSum_ = 0;
  if (lineFd_ >= 0) {
    // The target runs again when this program lets go of it.
    SetReset(false);
    close(lineFd_);
    lineFd_ = -1;
  }
  close(fd_);
  fd_ = -1;
}

}  // namespace

Link* NewSpidev() { return new (std::nothrow) Spidev; }

}  // namespace bridge
