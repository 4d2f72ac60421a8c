# The hardware bridge against flashrom (when installed) on the simulated
# serprog device and spidev fake: writing and reading a 4 MiB chip. Figures go
# to bench/bridge_results.txt in the build directory. Run with:
# cmake --build <dir> --target bench_bridge
add_custom_target(bench_bridge
  COMMAND python3 ${CMAKE_SOURCE_DIR}/bench/bridge_bench.py
          --bridge-bin ${CMAKE_BINARY_DIR}/bridge/pellam-spi
          --serprog $<TARGET_FILE:tarlosim-serprog>
          --spidev-fake $<TARGET_FILE:tarlosim_spidev>
          --out ${CMAKE_BINARY_DIR}/bench/bridge_results.txt
  DEPENDS pellam-spi-bridge tarlosim-serprog tarlosim_spidev
  USES_TERMINAL
  COMMENT "The hardware bridge against flashrom on the simulated devices")
