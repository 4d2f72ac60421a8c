# The chip table, connection, command layer and sequence interpreter built
# against stand-ins for the project model and the probe library
# (tests/unit/flashdb_fakes.*).
add_library(pellam_conn_testlib STATIC
  $<TARGET_OBJECTS:pellam_flash_core>
  $<TARGET_OBJECTS:pellam_seqactions>
  ${CMAKE_SOURCE_DIR}/tests/unit/flashdb_fakes.cpp)
target_link_libraries(pellam_conn_testlib PUBLIC pellam_log pellam_dataimage pellam_sys pellam_util)

pellam_test(flashdb_test
  SOURCES ${CMAKE_SOURCE_DIR}/tests/unit/flashdb_test.cpp
  LIBS pellam_conn_testlib)
