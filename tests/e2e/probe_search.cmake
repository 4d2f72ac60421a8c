pellam_e2e_test(probe_search_test SOURCES ${CMAKE_SOURCE_DIR}/tests/e2e/probe_search_test.cpp)
# A library that answers only the version queries, to tell which library the
# program opened.
add_dependencies(probe_search_test probe_fake_lib)
target_compile_definitions(probe_search_test PRIVATE PELLAM_FAKE_LIB="$<TARGET_FILE:probe_fake_lib>")
# Writes down the paths the program hands to dlopen, to watch the search order.
add_library(dlopen_log SHARED ${CMAKE_SOURCE_DIR}/tests/e2e/dlopen_log.cpp)
target_link_libraries(dlopen_log PRIVATE ${CMAKE_DL_LIBS})
add_dependencies(probe_search_test dlopen_log)
target_compile_definitions(probe_search_test PRIVATE PELLAM_DLOPEN_LOG_LIB="$<TARGET_FILE:dlopen_log>")
