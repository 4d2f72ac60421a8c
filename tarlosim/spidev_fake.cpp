// A spidev device and a gpiochip, faked inside the program by preloading
// this library: the program's spidev path then runs against the emulated
// chip, with the kernel's rules (bounce-buffer limits, chip select across
// messages, line requests) and without kernel support for either device.
//
// Everything is set up lazily on first use and never torn down: the library
// is loaded before the program's own initialisers run, and its calls may
// still arrive after the program's destructors.
#include <dlfcn.h>
#include <fcntl.h>
#include <linux/gpio.h>
#include <linux/spi/spidev.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>

#include "tarlosim/chip.h"
#include "tarlosim/devfiles.h"

#define FAKE_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

constexpr const char* kBufsizPath = "/sys/module/spidev/parameters/bufsiz";

template <class Fn>
Fn Next(const char* name) {
  return reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
}
using OpenFn = int (*)(const char*, int, ...);
using OpenatFn = int (*)(int, const char*, int, ...);
using IoctlFn = int (*)(int, unsigned long, ...);

struct Fake {
  std::mutex mu;
  bool on = false;  // TARLOSIM_SPIDEV names a device
  std::string dev, gpio, chipHex, flash, statsPath;
  uint32_t bufsiz = 4096, align = 128, lines = 32;
  long busyLine = -1, failAfter = -1;
  bool sysfs = true;
  FILE* trace = nullptr;
  tarlosim::Chip chip;
  int devFd = -1, gpioFd = -1, lineFd = -1;
  uint8_t mode = 0;
  uint32_t hz = 500000, lineOffset = 0;
  bool activeLow = false;
  uint64_t messages = 0, ioctls = 0, transfers = 0, bytes = 0, emsgsize = 0, resetValue = 0, released = 0;
};

int Fail(int e) {
  errno = e;
  return -1;
}

bool Configure(Fake& f) {
  const char* env = std::getenv("TARLOSIM_SPIDEV");
  if (!env) return false;
  std::string s = env;
  for (size_t p = 0; p < s.size();) {
    const size_t q = std::min(s.find(',', p), s.size()), eq = s.find('=', p);
    const std::string key = s.substr(p, std::min(eq, q) - p), val = eq < q ? s.substr(eq + 1, q - eq - 1) : "";
    const long n = std::strtol(val.c_str(), nullptr, 0);
    if (key == "dev") f.dev = val;
    else if (key == "gpio") f.gpio = val;
    else if (key == "bufsiz") f.bufsiz = static_cast<uint32_t>(n);
    else if (key == "sysfs") f.sysfs = n != 0;
    else if (key == "align") f.align = n > 0 ? static_cast<uint32_t>(n) : 1;
    else if (key == "gpio-lines") f.lines = static_cast<uint32_t>(n);
    else if (key == "busy-line") f.busyLine = n;
    else if (key == "fail-after") f.failAfter = n;
    else std::fprintf(stderr, "tarlosim-spidev: unknown TARLOSIM_SPIDEV item '%s'\n", key.c_str());
    p = q + 1;
  }
  const char* chip = std::getenv("TARLOSIM_CHIP");
  f.chipHex = chip && *chip ? chip : "C22018";
  if (const char* v = std::getenv("TARLOSIM_FLASH")) f.flash = v;
  if (const char* v = std::getenv("TARLOSIM_SPIDEV_STATS")) f.statsPath = v;
  if (const char* v = std::getenv("TARLOSIM_TRACE"); v && *v) f.trace = std::fopen(v, "a");
  return !f.dev.empty();
}

// The fake, configured on first use; null when the environment names no
// device (the library then only passes calls on).
Fake* Get() {
  static Fake* f = [] {
    Fake* x = new Fake;
    x->on = Configure(*x);
    return x;
  }();
  return f->on ? f : nullptr;
}

void WriteStats(Fake& f) {
  tarlosim::WriteStatsFile(f.statsPath, {{"ioctls", f.ioctls},
                                         {"transfers", f.transfers},
                                         {"bytes", f.bytes},
                                         {"emsgsize", f.emsgsize},
                                         {"reset_value", f.resetValue},
                                         {"reset_released", f.released}});
  if (f.trace) std::fflush(f.trace);
}

// A real descriptor to stand for a fake device file.
int NewFd(int flags, const char* text = nullptr) {
  const int fd = memfd_create("tarlosim-spidev", flags & O_CLOEXEC ? MFD_CLOEXEC : 0);
  if (fd >= 0 && text && (write(fd, text, std::strlen(text)) < 0 || lseek(fd, 0, SEEK_SET) < 0)) return -1;
  return fd;
}

// Opens one of the fake paths; false: not ours, pass it on.
bool OpenFake(const char* path, int flags, int& fd) {
  Fake* f = path ? Get() : nullptr;
  if (!f) return false;
  std::lock_guard<std::mutex> g(f->mu);
  if (path == f->dev) {
    if (f->devFd >= 0) return fd = Fail(EBUSY), true;  // one user at a time keeps the model simple
    std::string err;
    if (!tarlosim::PowerUpFromFile(f->chip, f->chipHex, f->flash, err)) {
      std::fprintf(stderr, "tarlosim-spidev: %s\n", err.c_str());
      return fd = Fail(ENODEV), true;
    }
    fd = f->devFd = NewFd(flags);
  } else if (!f->gpio.empty() && path == f->gpio) {
    fd = f->gpioFd = NewFd(flags);
  } else if (std::strcmp(path, kBufsizPath) == 0) {
    fd = f->sysfs ? NewFd(flags, (std::to_string(f->bufsiz) + "\n").c_str()) : Fail(ENOENT);
  } else {
    return false;
  }
  return true;
}

uint32_t AlignUp(uint32_t n, uint32_t a) { return (n + a - 1) / a * a; }

// SPI_IOC_MESSAGE: the kernel's checks, then every transfer clocked with
// chip select as the transfers' cs_change asks.
int Message(Fake& f, unsigned long req, const spi_ioc_transfer* t) {
  f.ioctls++;
  if (_IOC_SIZE(req) % sizeof(spi_ioc_transfer)) return Fail(EINVAL);
  const size_t n = _IOC_SIZE(req) / sizeof(spi_ioc_transfer);
  if (f.failAfter >= 0 && ++f.messages > static_cast<uint64_t>(f.failAfter)) return Fail(EIO);
  uint64_t tx = 0, rx = 0;
  for (size_t i = 0; i < n; i++) {
    if (t[i].tx_buf) tx += AlignUp(t[i].len, f.align);
    if (t[i].rx_buf) rx += AlignUp(t[i].len, f.align);
  }
  if (tx > f.bufsiz || rx > f.bufsiz) return f.emsgsize++, Fail(EMSGSIZE);
  static const uint8_t zeros[4096] = {};
  int total = 0;
  for (size_t i = 0; i < n; i++) {
    if (!f.chip.Selected()) f.chip.Select();
    const uint8_t* out = reinterpret_cast<const uint8_t*>(t[i].tx_buf);
    uint8_t* in = reinterpret_cast<uint8_t*>(t[i].rx_buf);
    for (uint32_t done = 0; done < t[i].len;) {
      const uint32_t k = out ? t[i].len - done : std::min<uint32_t>(t[i].len - done, sizeof zeros);
      f.chip.Clock(out ? out + done : zeros, in ? in + done : nullptr, k);
      done += k;
    }
    f.transfers++;
    f.bytes += t[i].len;
    total += static_cast<int>(t[i].len);
    // cs_change inverts what happens after a transfer: a break between
    // transfers, or chip select kept after the message's last one.
    if ((t[i].cs_change != 0) != (i + 1 == n)) tarlosim::EndFrame(f.chip, f.trace);
  }
  return total;
}

int SpiIoctl(Fake& f, unsigned long req, void* arg) {
  auto u8 = static_cast<uint8_t*>(arg);
  auto u32 = static_cast<uint32_t*>(arg);
  switch (req) {
    case SPI_IOC_WR_MODE: f.mode = *u8; return 0;
    case SPI_IOC_RD_MODE: *u8 = f.mode; return 0;
    case SPI_IOC_WR_BITS_PER_WORD: return *u8 == 0 || *u8 == 8 ? 0 : Fail(EINVAL);
    case SPI_IOC_RD_BITS_PER_WORD: *u8 = 8; return 0;
    case SPI_IOC_WR_MAX_SPEED_HZ:
      if (*u32 == 0) return Fail(EINVAL);
      f.hz = *u32;
      f.chip.SetSpeedKHz(f.hz / 1000);
      return 0;
    case SPI_IOC_RD_MAX_SPEED_HZ: *u32 = f.hz; return 0;
  }
  if (_IOC_TYPE(req) == SPI_IOC_MAGIC && _IOC_NR(req) == 0 && _IOC_DIR(req) == _IOC_WRITE)
    return Message(f, req, static_cast<const spi_ioc_transfer*>(arg));
  return Fail(ENOTTY);
}

void SetLine(Fake& f, bool logical) {
  const uint64_t v = logical != f.activeLow;
  if (f.released || v != f.resetValue)
    if (f.trace) std::fprintf(f.trace, "# reset line %u = %u\n", f.lineOffset, static_cast<unsigned>(v));
  f.resetValue = v;
  f.released = 0;
}

int RequestLine(Fake& f, gpio_v2_line_request* r) {
  if (r->num_lines != 1 || r->offsets[0] >= f.lines) return Fail(EINVAL);
  if (static_cast<long>(r->offsets[0]) == f.busyLine || f.lineFd >= 0) return Fail(EBUSY);
  uint64_t flags = r->config.flags;
  bool value = false, flagsSet = false, valueSet = false;
  for (uint32_t i = 0; i < r->config.num_attrs && i < GPIO_V2_LINE_NUM_ATTRS_MAX; i++) {
    const gpio_v2_line_config_attribute& a = r->config.attrs[i];
    if (!(a.mask & 1)) continue;
    if (a.attr.id == GPIO_V2_LINE_ATTR_ID_FLAGS && !flagsSet) flags = a.attr.flags, flagsSet = true;
    if (a.attr.id == GPIO_V2_LINE_ATTR_ID_OUTPUT_VALUES && !valueSet) value = a.attr.values & 1, valueSet = true;
  }
  if (!(flags & GPIO_V2_LINE_FLAG_OUTPUT)) return Fail(EINVAL);
  const int fd = eventfd(0, EFD_CLOEXEC);
  if (fd < 0) return -1;
  f.lineFd = r->fd = fd;
  f.lineOffset = r->offsets[0];
  f.activeLow = flags & GPIO_V2_LINE_FLAG_ACTIVE_LOW;
  f.released = 1;  // so that the first value is always noted
  SetLine(f, value);
  return 0;
}

int GpioIoctl(Fake& f, int fd, unsigned long req, void* arg) {
  if (fd == f.gpioFd && req == GPIO_GET_CHIPINFO_IOCTL) {
    auto* info = static_cast<gpiochip_info*>(arg);
    std::memset(info, 0, sizeof *info);
    std::snprintf(info->name, sizeof info->name, "gpiochip0");
    std::snprintf(info->label, sizeof info->label, "tarlosim");
    info->lines = f.lines;
    return 0;
  }
  if (fd == f.gpioFd && req == GPIO_V2_GET_LINE_IOCTL) return RequestLine(f, static_cast<gpio_v2_line_request*>(arg));
  if (fd == f.lineFd && req == GPIO_V2_LINE_SET_VALUES_IOCTL) {
    const auto* v = static_cast<const gpio_v2_line_values*>(arg);
    if (v->mask & 1) SetLine(f, v->bits & 1);
    return 0;
  }
  return Fail(ENOTTY);
}

int OpenWith(const char* path, int flags, va_list ap, int (*real)(const char*, int, ...)) {
  int fd;
  if (OpenFake(path, flags, fd)) return fd;
  if (flags & O_CREAT || (flags & O_TMPFILE) == O_TMPFILE) return real(path, flags, va_arg(ap, int));
  return real(path, flags);
}

int OpenatWith(int dir, const char* path, int flags, va_list ap, int (*real)(int, const char*, int, ...)) {
  int fd;
  if (OpenFake(path, flags, fd)) return fd;
  if (flags & O_CREAT || (flags & O_TMPFILE) == O_TMPFILE) return real(dir, path, flags, va_arg(ap, int));
  return real(dir, path, flags);
}

}  // namespace

FAKE_EXPORT int open(const char* path, int flags, ...) {
  static const OpenFn real = Next<OpenFn>("open");
  va_list ap;
  va_start(ap, flags);
  const int r = OpenWith(path, flags, ap, real);
  va_end(ap);
  return r;
}

FAKE_EXPORT int open64(const char* path, int flags, ...) {
  static const OpenFn real = Next<OpenFn>("open64");
  va_list ap;
  va_start(ap, flags);
  const int r = OpenWith(path, flags, ap, real);
  va_end(ap);
  return r;
}

FAKE_EXPORT int openat(int dir, const char* path, int flags, ...) {
  static const OpenatFn real = Next<OpenatFn>("openat");
  va_list ap;
  va_start(ap, flags);
  const int r = OpenatWith(dir, path, flags, ap, real);
  va_end(ap);
  return r;
}

FAKE_EXPORT int openat64(int dir, const char* path, int flags, ...) {
  static const OpenatFn real = Next<OpenatFn>("openat64");
  va_list ap;
  va_start(ap, flags);
  const int r = OpenatWith(dir, path, flags, ap, real);
  va_end(ap);
  return r;
}

FAKE_EXPORT int ioctl(int fd, unsigned long req, ...) noexcept {
  static const IoctlFn real = Next<IoctlFn>("ioctl");
  va_list ap;
  va_start(ap, req);
  void* arg = va_arg(ap, void*);
  va_end(ap);
  if (Fake* f = Get()) {
    std::lock_guard<std::mutex> g(f->mu);
    if (fd < 0) return real(fd, req, arg);
    if (fd == f->devFd) return SpiIoctl(*f, req, arg);
    if (fd == f->gpioFd || fd == f->lineFd) return GpioIoctl(*f, fd, req, arg);
  }
  return real(fd, req, arg);
}

FAKE_EXPORT int close(int fd) {
  static const auto real = Next<int (*)(int)>("close");
  if (Fake* f = Get(); f && fd >= 0) {
    std::lock_guard<std::mutex> g(f->mu);
    if (fd == f->devFd) {
      // The driver lets chip select go when its user goes.
      tarlosim::EndFrame(f->chip, f->trace);
      tarlosim::SaveContents(f->chip, f->flash);
      f->devFd = -1;
      WriteStats(*f);
    } else if (fd == f->lineFd) {
      if (f->trace) std::fprintf(f->trace, "# reset line %u released\n", f->lineOffset);
      f->lineFd = -1;
      f->released = 1;
      WriteStats(*f);
    } else if (fd == f->gpioFd) {
      f->gpioFd = -1;
    }
  }
  return real(fd);
}
