#include "bridge/frame.h"

#include <cstring>

namespace bridge {

namespace {

constexpr uint32_t kEndBits = TARLO_SPI_FLAG_END & ~TARLO_SPI_FLAG_BEGIN;

}  // namespace

bool Frames::Add(const uint8_t* out, uint8_t* in, uint32_t n, bool begin, bool end) {
  if (begin) selected_ = true;
  if (!selected_) {
    // Nothing can be clocked with chip select released; nobody drives MISO.
    if (in) std::memset(in, 0xFF, n);
    return true;
  }
  bool ok = true;
  if (!in && !handed_) {
    if (out)
      head_.insert(head_.end(), out, out + n);
    else
      head_.insert(head_.end(), n, 0xFF);
    if (end) {
      if (!head_.empty()) ok = link_.Add(head_.data(), nullptr, static_cast<uint32_t>(head_.size()), true);
      head_.clear();
      selected_ = false;
    }
    return ok;
  }
  if (!head_.empty()) ok = link_.Add(head_.data(), nullptr, static_cast<uint32_t>(head_.size()), false);
  head_.clear();
  handed_ = true;
  ok = link_.Add(out, in, n, end) && ok;
  if (end) selected_ = handed_ = false;
  return ok;
}

int Frames::Transfer(const uint8_t* out, uint8_t* in, uint32_t numBits, uint32_t flags) {
  const uint32_t n = (numBits + 7) / 8;
  bool ok = Add(out, in, n, flags & TARLO_SPI_FLAG_BEGIN, flags & kEndBits);
  // The caller reads its buffer when the call returns (also after a failure,
  // nothing may still be bound for it); and a finished frame reaches the chip
  // before the call returns, ahead of whatever the caller does next (a delay,
  // the reset line).
  if (in || !selected_ || !ok) ok = link_.Sync() && ok;
  return ok ? static_cast<int>(n) : -1;
}

void Frames::Select() { selected_ = true; }

void Frames::Release() {
  if (selected_ && (handed_ || !head_.empty()) && Add(nullptr, nullptr, 0, false, true)) link_.Sync();
  selected_ = handed_ = false;
  head_.clear();
}

int Frames::Batch(TARLO_SPI_JOB* jobs, int numJobs) {
  if (numJobs < 0 || (numJobs > 0 && !jobs)) return -1;
  // Transfer results are set once what they queued is known to be clocked:
  // at the next poll or at the end.
  int unsettled = 0;
  auto settle = [&](int upTo, bool ok) {
    for (; unsettled < upTo; unsettled++) {
      TARLO_SPI_JOB& j = jobs[unsettled];
      if (j.Type == TARLO_SPI_JOB_TRANSFER)
        j.Result = !ok ? -1 : j.pOut ? static_cast<int32_t>((j.NumBits + 7) / 8) : 0;
    }
  };
  for (int i = 0; i < numJobs; i++) {
    TARLO_SPI_JOB& j = jobs[i];
    const uint32_t n = (j.NumBits + 7) / 8;
    if (j.Type == TARLO_SPI_JOB_TRANSFER) {
      if (!Add(j.pOut, j.pIn, n, j.Flags & TARLO_SPI_FLAG_BEGIN, j.Flags & kEndBits)) {
        link_.Sync();
        settle(i + 1, false);
        return 0;
      }
      continue;
    }
    TARLO_SPI_POLL poll{};
    if (j.Type == TARLO_SPI_JOB_POLL && j.pParam && j.ParamSize >= sizeof poll)
      std::memcpy(&poll, j.pParam, sizeof poll);
    if (j.Flags & TARLO_SPI_FLAG_BEGIN) selected_ = true;
    // A poll re-sends the frame's start with each read, so it must end a
    // frame whose start is still held back here.
    if (j.Type != TARLO_SPI_JOB_POLL || !j.pParam || j.ParamSize < sizeof poll || !selected_ || handed_ ||
        !(j.Flags & kEndBits) || n == 0) {
      settle(i, link_.Sync());
      j.Result = TARLO_ERR_UNSUPPORTED;
      Release();
      return 0;
    }
    std::vector<uint8_t> scratch(j.pIn ? 0 : n);
    const int r = link_.Poll(head_.data(), static_cast<uint32_t>(head_.size()), j.pIn ? j.pIn : scratch.data(), n,
                             PollCond{poll.Mask, poll.Expected, poll.MaxRepeat});
    head_.clear();
    selected_ = false;
    settle(i, r != kLinkFailed);
    j.Result = r > 0 ? r : -1;
    unsettled = i + 1;
    if (r <= 0) {
      link_.Sync();
      return 0;
    }
  }
  settle(numJobs, link_.Sync());
  return 0;
}

}  // namespace bridge
