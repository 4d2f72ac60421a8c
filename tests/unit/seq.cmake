# Runs against the simulated probe library beside the test binary, and needs
# the project model for its steps.
file(GLOB _seq_project_srcs ${CMAKE_SOURCE_DIR}/project/*.cpp)
if(_seq_project_srcs)
  pellam_test(seq_test
    SOURCES ${CMAKE_SOURCE_DIR}/tests/unit/seq_test.cpp
    LIBS pellam_flash pellam_log)
  add_dependencies(seq_test tarloarm)
endif()
