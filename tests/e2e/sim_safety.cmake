# Runs that must not lose the simulated chip's contents silently: two runs
# at once, bad simulator settings, unreadable and unwritable contents files.
pellam_e2e_test(sim_safety_e2e_test SOURCES ${CMAKE_SOURCE_DIR}/tests/e2e/sim_safety_test.cpp TIMEOUT 120)
