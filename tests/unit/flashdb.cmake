# The chip table, connection, command layer and sequence interpreter built
# against stand-ins for the project model and the probe library
# (tests/unit/flashdb_fakes.*).
add_library(pellam_conn_testlib STATIC
  ${CMAKE_SOURCE_DIR}/flash/chiptable.cpp
  ${CMAKE_SOURCE_DIR}/flash/flashdb.cpp
  ${CMAKE_SOURCE_DIR}/flash/connect.cpp
  ${CMAKE_SOURCE_DIR}/flash/spicmd.cpp
  ${CMAKE_SOURCE_DIR}/flash/seq/seq.cpp
  ${CMAKE_SOURCE_DIR}/project/seqactions.cpp
  ${CMAKE_SOURCE_DIR}/tests/unit/flashdb_fakes.cpp)
target_link_libraries(pellam_conn_testlib PUBLIC pellam_log pellam_dataimage pellam_sys pellam_util)

pellam_test(flashdb_test
  SOURCES ${CMAKE_SOURCE_DIR}/tests/unit/flashdb_test.cpp
          ${CMAKE_SOURCE_DIR}/tests/unit/flashdb_connect_test.cpp
  LIBS pellam_conn_testlib)
