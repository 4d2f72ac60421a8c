pellam_test(datafile_test SOURCES ${CMAKE_SOURCE_DIR}/tests/unit/datafile_test.cpp LIBS pellam_datafile)
