pellam_e2e_test(datafile_e2e_test SOURCES ${CMAKE_SOURCE_DIR}/tests/e2e/datafile_test.cpp TIMEOUT 120)
