pellam_test(log_test SOURCES ${CMAKE_SOURCE_DIR}/tests/unit/log_test.cpp LIBS pellam_log)
