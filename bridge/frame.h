// Chip-select frames as the program drives them (transfer flags, TMS as chip
// select, batch jobs), turned into Link calls. Shared by both kinds.
#pragma once
#include <cstdint>
#include <vector>

#include "bridge/link.h"
#include "probe/tarlo_abi.h"

namespace bridge {

class Frames {
 public:
  explicit Frames(Link& link) : link_(link) {}
  int Transfer(const uint8_t* out, uint8_t* in, uint32_t numBits, uint32_t flags);
  void Select();   // TMS low
  void Release();  // TMS high
  int Batch(TARLO_SPI_JOB* jobs, int numJobs);

 private:
  bool Add(const uint8_t* out, uint8_t* in, uint32_t n, bool begin, bool end);

  Link& link_;
  bool selected_ = false;
  // The write-only start of the current frame, held back so that a read
  // that follows goes out with it in one device operation.
  std::vector<uint8_t> head_;
  bool handed_ = false;  // part of the current frame reached the link
};

}  // namespace bridge
