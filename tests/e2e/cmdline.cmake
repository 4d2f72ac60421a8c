pellam_e2e_test(cmdline_test SOURCES ${CMAKE_SOURCE_DIR}/tests/e2e/cmdline_test.cpp)
