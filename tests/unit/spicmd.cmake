pellam_test(spicmd_test
  SOURCES ${CMAKE_SOURCE_DIR}/tests/unit/spicmd_test.cpp
  LIBS pellam_flash)
