# The whole command-line walk in-process, with one platform allocation failing per run.
pellam_test(alloc_failure_test SOURCES ${CMAKE_SOURCE_DIR}/tests/unit/alloc_failure_test.cpp LIBS pellam_app TIMEOUT 600)
add_dependencies(alloc_failure_test tarloarm)
