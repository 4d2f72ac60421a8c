pellam_e2e_test(probe_search_test SOURCES ${CMAKE_SOURCE_DIR}/tests/e2e/probe_search_test.cpp)
# A library that answers only the version queries, to tell which library the
# program opened.
add_dependencies(probe_search_test probe_fake_lib)
target_compile_definitions(probe_search_test PRIVATE PELLAM_FAKE_LIB="$<TARGET_FILE:probe_fake_lib>")
