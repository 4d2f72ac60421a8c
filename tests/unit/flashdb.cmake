pellam_test(flashdb_test
  SOURCES ${CMAKE_SOURCE_DIR}/tests/unit/flashdb_test.cpp
  LIBS pellam_flash)
