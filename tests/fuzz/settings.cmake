# The settings parser and the project loader, compiled into the entry point
# itself so that their code carries the coverage instrumentation.
add_executable(settings_fuzz
  ${CMAKE_SOURCE_DIR}/tests/fuzz/settings_fuzz.cpp
  ${CMAKE_SOURCE_DIR}/project/settings.cpp
  ${CMAKE_SOURCE_DIR}/project/project.cpp
  ${CMAKE_SOURCE_DIR}/project/report.cpp
  ${CMAKE_SOURCE_DIR}/project/appini.cpp
  ${CMAKE_SOURCE_DIR}/flash/seq/seqactions.cpp)
target_compile_options(settings_fuzz PRIVATE -fsanitize=fuzzer,address,undefined)
target_link_options(settings_fuzz PRIVATE -fsanitize=fuzzer,address,undefined)
target_link_libraries(settings_fuzz PRIVATE pellam_log pellam_sys pellam_util)
