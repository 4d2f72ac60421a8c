# Loading and saving a 64 MiB image in every data file format, side by side
# with GNU objcopy doing the same conversions on the same files. Figures go
# to bench/datafile_results.txt in the build directory.
# Run with: cmake --build <dir> --target bench_datafile
add_executable(datafile_bench ${CMAKE_SOURCE_DIR}/bench/datafile_bench.cpp)
target_link_libraries(datafile_bench PRIVATE pellam_datafile)
add_custom_target(bench_datafile
  COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_BINARY_DIR}/bench/datafile_work
  COMMAND datafile_bench ${CMAKE_BINARY_DIR}/bench/datafile_work ${CMAKE_BINARY_DIR}/bench/datafile_results.txt
  DEPENDS datafile_bench
  USES_TERMINAL
  COMMENT "Data file load and save against objcopy")
