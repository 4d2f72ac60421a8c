# Loading and saving a 64 MiB image in every data file format, side by side
# with GNU objcopy doing the same conversions on the same files. Figures go
# to bench/datafile_results.txt in the build directory.
# Run with: cmake --build <dir> --target bench_datafile
pellam_bench(datafile LIBS pellam_datafile
  COMMENT "Data file load and save against objcopy")
