# Linked against the whole flash layer, so it waits for the project model.
file(GLOB _flashdb_project_srcs ${CMAKE_SOURCE_DIR}/project/*.cpp)
if(_flashdb_project_srcs)
  pellam_test(flashdb_test
    SOURCES ${CMAKE_SOURCE_DIR}/tests/unit/flashdb_test.cpp
    LIBS pellam_flash)
endif()
