pellam_e2e_test(flashops_e2e_test
  SOURCES ${CMAKE_SOURCE_DIR}/tests/e2e/flashops_test.cpp
  TIMEOUT 600)
