pellam_test(project_test SOURCES ${CMAKE_SOURCE_DIR}/tests/unit/project_test.cpp LIBS pellam_project)
