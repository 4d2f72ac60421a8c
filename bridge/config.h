// The adapter the bridge drives, as the PELLAM_BRIDGE variable names it.
#pragma once
#include <cstdint>
#include <string>

namespace bridge {

enum class Kind : uint8_t { Serprog, Spidev };

struct Config {
  Kind kind = Kind::Serprog;
  std::string device;  // tty or spidev path; for serprog over TCP the host
  int port = 0;        // serprog over TCP: non-zero
  uint32_t baud = 115200;
  int cs = -1;  // serprog chip-select number, -1: the device's default
  int vtargetMv = 3300;
  bool snSet = false;
  uint32_t sn = 0;
  std::string resetChip;  // spidev: the gpiochip of the reset line, empty: none
  uint32_t resetLine = 0;
  bool resetActiveLow = true;
};

// The grammar, for messages.
extern const char* const kGrammar;

// Parses one PELLAM_BRIDGE value. false: *error says what is wrong (naming
// the variable and showing the grammar).
bool ParseConfig(const char* text, Config& out, std::string& error);

// "HOST:PORT" of a project that connects by TCP/IP: serprog over TCP.
bool ParseHostPort(const std::string& text, std::string& host, int& port, std::string& error);

}  // namespace bridge
