pellam_test(sys_test SOURCES ${CMAKE_SOURCE_DIR}/tests/unit/sys_test.cpp LIBS pellam_sys pellam_util)
