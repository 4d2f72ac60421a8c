# The program on the hardware bridge, against the simulated serprog device
# and the simulated spidev.
pellam_e2e_test(bridge_e2e_test SOURCES ${CMAKE_SOURCE_DIR}/tests/e2e/bridge_test.cpp TIMEOUT 600)
target_compile_definitions(bridge_e2e_test PRIVATE PELLAM_BRIDGE_BIN="${CMAKE_BINARY_DIR}/bridge/pellam-spi")
add_dependencies(bridge_e2e_test pellam-spi-bridge tarlosim-serprog tarlosim_spidev)
