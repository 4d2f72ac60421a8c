pellam_e2e_test(project_e2e_test SOURCES ${CMAKE_SOURCE_DIR}/tests/e2e/project_e2e_test.cpp)
