pellam_e2e_test(connect_e2e_test
  SOURCES ${CMAKE_SOURCE_DIR}/tests/e2e/connect_test.cpp
  TIMEOUT 600)
