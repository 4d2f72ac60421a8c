pellam_e2e_test(datafile_input_test SOURCES ${CMAKE_SOURCE_DIR}/tests/e2e/datafile_input_test.cpp TIMEOUT 120)
