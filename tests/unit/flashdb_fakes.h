// Stand-ins for the project model and the probe library, so that the chip
// table, the connection and the sequence interpreter can be tested alone:
// the project is a set of records, the probe records every call and answers
// reads from a queue of bytes.
#pragma once
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "project/project.h"

namespace fake {

struct Transfer {
  std::vector<uint8_t> out;  // empty for reads
  uint32_t numBits;
  uint32_t flags;
  bool read;
};

struct Probe {
  std::vector<std::string> calls;     // everything but transfers, in order
  std::vector<Transfer> transfers;
  std::deque<uint8_t> readData;       // answers for reads; 0xFF when empty
  uint16_t vtarget = 3300;
  bool supplyWorks = true;            // "SupplyPower = 1" raises the target to 3.3 V
  bool suppliesPower = false;         // "SupplyPower = 1" seen
};

struct Project {
  bool open = true;
  ProjectGeneral general;
  ProjectSequences sequences;
  FlashParams flash;
};

Probe& probe();
Project& project();
// Clears the probe's records and puts the project back to its defaults
// (open, USB index 0, speed 4000, AutoDetect 1, no steps).
void Reset();
// The 13 bytes a chip answers to 0x9F, queued for the next read.
void QueueId(std::vector<uint8_t> bytes);
// Single-byte whole-frame commands sent so far, in order.
std::vector<uint8_t> CommandBytes();

}  // namespace fake
