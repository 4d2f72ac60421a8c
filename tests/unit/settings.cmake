pellam_test(settings_test SOURCES ${CMAKE_SOURCE_DIR}/tests/unit/settings_test.cpp LIBS pellam_project)
