pellam_test(util_test SOURCES ${CMAKE_SOURCE_DIR}/tests/unit/util_test.cpp LIBS pellam_util)
