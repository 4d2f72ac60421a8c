# pellam_conn_testlib comes from flashdb.cmake.
pellam_test(seq_test
  SOURCES ${CMAKE_SOURCE_DIR}/tests/unit/seq_test.cpp
  LIBS pellam_conn_testlib)
