# Loading a HEX file of 100,000 one-byte records written in two interleaved
# passes, against the same records in address order. Figures go to
# bench/interleaved_load_results.txt in the build directory.
# Run with: cmake --build <dir> --target bench_interleaved_load
pellam_bench(interleaved_load LIBS pellam_datafile
  COMMENT "Interleaved HEX load against the in-order file")
