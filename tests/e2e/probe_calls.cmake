pellam_e2e_test(probe_calls_e2e_test SOURCES ${CMAKE_SOURCE_DIR}/tests/e2e/probe_calls_test.cpp)
