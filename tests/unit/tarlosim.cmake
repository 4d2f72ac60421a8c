# The simulated probe library, tested through its exported functions.
pellam_test(tarlosim_test SOURCES ${CMAKE_CURRENT_LIST_DIR}/tarlosim_test.cpp LIBS tarloarm)
