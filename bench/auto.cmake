# -auto of a 16 MiB image on the simulated chip: erased chip, the same image
# again, one changed 4 KiB block. Figures go to bench/auto_results.txt in the
# build directory. Run with: cmake --build <dir> --target bench_auto
add_custom_target(bench_auto
  COMMAND python3 ${CMAKE_SOURCE_DIR}/bench/auto_bench.py
          --bin ${CMAKE_BINARY_DIR}/bin/pellam-spi
          --out ${CMAKE_BINARY_DIR}/bench/auto_results.txt
  DEPENDS pellam-spi tarloarm
  USES_TERMINAL
  COMMENT "-auto of a 16 MiB image on the simulated chip")
