# Connecting, and the simulated chip's safety: two runs at once, bad
# simulator settings, unreadable and unwritable contents files.
pellam_e2e_test(connect_e2e_test
  SOURCES ${CMAKE_SOURCE_DIR}/tests/e2e/connect_test.cpp
  TIMEOUT 600)
