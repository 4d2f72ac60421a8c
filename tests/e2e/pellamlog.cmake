pellam_e2e_test(pellamlog_test SOURCES ${CMAKE_SOURCE_DIR}/tests/e2e/pellamlog_test.cpp TIMEOUT 120)
