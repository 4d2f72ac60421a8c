// S-record reader on arbitrary bytes. A file that loads is written back and
// must load again to the same image.
#include "scripts/fuzz/datafile_fuzz_common.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  return FuzzReader(data, size, DATAFILE_ReadMot, DATAFILE_WriteMot);
}
