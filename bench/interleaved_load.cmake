# Loading a HEX file of 100,000 one-byte records written in two interleaved
# passes, against the same records in address order. Figures go to
# bench/interleaved_load_results.txt in the build directory.
# Run with: cmake --build <dir> --target bench_interleaved_load
add_executable(interleaved_load_bench ${CMAKE_SOURCE_DIR}/bench/interleaved_load_bench.cpp)
target_link_libraries(interleaved_load_bench PRIVATE pellam_datafile)
add_custom_target(bench_interleaved_load
  COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_BINARY_DIR}/bench/interleaved_load_work
  COMMAND interleaved_load_bench ${CMAKE_BINARY_DIR}/bench/interleaved_load_work
          ${CMAKE_BINARY_DIR}/bench/interleaved_load_results.txt
  DEPENDS interleaved_load_bench
  USES_TERMINAL
  COMMENT "Interleaved HEX load against the in-order file")
