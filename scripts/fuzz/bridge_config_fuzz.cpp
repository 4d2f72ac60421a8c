// PELLAM_BRIDGE values and project host names: the bridge either takes one
// whole or names what is wrong, never reads past the text, never throws.
#include <cstddef>
#include <cstdint>
#include <string>

#include "bridge/config.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  bridge::Config c;
  std::string error;
  const bool ok = bridge::ParseConfig(text.c_str(), c, error);
  if (!ok && error.empty()) __builtin_trap();
  if (ok && (c.device.empty() || (c.kind == bridge::Kind::Spidev && c.port != 0))) __builtin_trap();
  std::string host;
  int port = 0;
  if (bridge::ParseHostPort(text, host, port, error) && (port < 1 || port > 65535 || host.empty())) __builtin_trap();
  return 0;
}
