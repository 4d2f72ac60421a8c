pellam_test(progress_test SOURCES ${CMAKE_SOURCE_DIR}/tests/unit/progress_test.cpp LIBS pellam_app)
