// A stand-in probe library for the binding's tests: it exports only two of
// the functions the program calls, so the binding's handling of a missing
// function can be watched.
#include <cstdint>

extern "C" __attribute__((visibility("default"))) uint32_t TARLOARM_GetDLLVersion(void) { return 68054; }
extern "C" __attribute__((visibility("default"))) const char* TARLOARM_GetCompileDateTime(void) {
  return "Fake build";
}

#ifdef PELLAM_FAKE_EDIT
// Built a second time as the line-editing library found under ThirdParty/.
extern "C" __attribute__((visibility("default"))) int FakeEditMarker(void) { return 1; }
#endif
