pellam_test(operations_test
  SOURCES ${CMAKE_SOURCE_DIR}/tests/unit/operations_test.cpp
  LIBS pellam_flash)
