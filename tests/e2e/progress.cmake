# The live progress line, checked from a real pseudo-terminal.
find_package(Python3 COMPONENTS Interpreter)
if(Python3_Interpreter_FOUND)
  add_test(NAME progress_pty
    COMMAND Python3::Interpreter ${CMAKE_SOURCE_DIR}/tests/e2e/progress_pty_test.py $<TARGET_FILE:pellam-spi>)
  set_tests_properties(progress_pty PROPERTIES TIMEOUT 180)
endif()
