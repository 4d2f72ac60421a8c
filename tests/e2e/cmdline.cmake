pellam_e2e_test(cmdline_test SOURCES ${CMAKE_SOURCE_DIR}/tests/e2e/cmdline_test.cpp)
pellam_test(cmdline_parse_test SOURCES ${CMAKE_SOURCE_DIR}/tests/e2e/cmdline_parse_test.cpp LIBS pellam_app)
