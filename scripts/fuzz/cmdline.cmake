pellam_fuzz_target(cmdline_fuzz pellam_app)
# The walk connects to the simulated probe, found beside the binary.
add_dependencies(cmdline_fuzz tarloarm)
# The program's clock readings go through the target's fast-running clock.
target_link_options(cmdline_fuzz PRIVATE -Wl,--wrap=clock_gettime)
