pellam_test(memimage_test SOURCES ${CMAKE_SOURCE_DIR}/tests/unit/memimage_test.cpp LIBS pellam_dataimage)
