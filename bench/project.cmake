# Opening a project file with 100,000 step keys, next to a project of the
# usual size and to reading the file's bytes. Figures go to
# bench/project_results.txt in the build directory.
# Run with: cmake --build <dir> --target bench_project
pellam_bench(project LIBS pellam_project
  COMMENT "Project open with 100,000 step keys against a usual project")
