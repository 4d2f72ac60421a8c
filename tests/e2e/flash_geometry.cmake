pellam_e2e_test(flash_geometry_e2e_test
  SOURCES ${CMAKE_SOURCE_DIR}/tests/e2e/flash_geometry_test.cpp
  TIMEOUT 600)
