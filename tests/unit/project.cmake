pellam_test(project_test SOURCES ${CMAKE_SOURCE_DIR}/tests/unit/project_test.cpp LIBS pellam_project)
pellam_test(seqactions_test SOURCES ${CMAKE_SOURCE_DIR}/tests/unit/seqactions_test.cpp LIBS pellam_project)
