# The binding against a library that lacks most functions: test program and
# library share a directory of their own.
set(probe_fake_dir ${CMAKE_BINARY_DIR}/probe-fake)
add_library(probe_fake_lib SHARED ${CMAKE_SOURCE_DIR}/tests/unit/probe_fake_lib.cpp)
target_include_directories(probe_fake_lib PRIVATE ${CMAKE_SOURCE_DIR})
set_target_properties(probe_fake_lib PROPERTIES OUTPUT_NAME tarloarm PREFIX lib SUFFIX .so
  LIBRARY_OUTPUT_DIRECTORY ${probe_fake_dir} CXX_VISIBILITY_PRESET hidden)
pellam_test(probe_fake_test SOURCES ${CMAKE_SOURCE_DIR}/tests/unit/probe_fake_test.cpp LIBS pellam_probe)
set_target_properties(probe_fake_test PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${probe_fake_dir})
target_compile_definitions(probe_fake_test PRIVATE PELLAM_FAKE_DIR="${probe_fake_dir}")
add_dependencies(probe_fake_test probe_fake_lib)

# No library anywhere the search looks.
pellam_test(probe_none_test SOURCES ${CMAKE_SOURCE_DIR}/tests/unit/probe_none_test.cpp LIBS pellam_probe)
set_target_properties(probe_none_test PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/probe-none)

# The line-editing library is looked for under ThirdParty/ beside the program.
add_library(probe_fake_edit SHARED ${CMAKE_SOURCE_DIR}/tests/unit/probe_fake_lib.cpp)
set_target_properties(probe_fake_edit PROPERTIES OUTPUT_NAME edit PREFIX lib SUFFIX .so.0
  LIBRARY_OUTPUT_DIRECTORY ${probe_fake_dir}/ThirdParty CXX_VISIBILITY_PRESET hidden)
target_compile_definitions(probe_fake_edit PRIVATE PELLAM_FAKE_EDIT)
target_include_directories(probe_fake_edit PRIVATE ${CMAKE_SOURCE_DIR})
add_dependencies(probe_fake_test probe_fake_edit)
