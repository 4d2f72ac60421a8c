# Opening a project file with 100,000 step keys, next to a project of the
# usual size and to reading the file's bytes. Figures go to
# bench/project_results.txt in the build directory.
# Run with: cmake --build <dir> --target bench_project
add_executable(project_bench ${CMAKE_SOURCE_DIR}/bench/project_bench.cpp)
target_link_libraries(project_bench PRIVATE pellam_project)
add_custom_target(bench_project
  COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_BINARY_DIR}/bench/project_work
  COMMAND project_bench ${CMAKE_BINARY_DIR}/bench/project_work ${CMAKE_BINARY_DIR}/bench/project_results.txt
  DEPENDS project_bench
  USES_TERMINAL
  COMMENT "Project open with 100,000 step keys against a usual project")
