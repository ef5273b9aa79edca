# The serial line: the link's share of an exchange, and the share of the line that uploads reach. A
# program of its own: a process decides once whether its instrument is simulated.
add_executable(tornval_serial_bench SerialLineBench.cpp)
target_link_libraries(tornval_serial_bench PRIVATE tornval_core tornval_options serial_link_core
  tornval_instrument_core benchmark::benchmark benchmark::benchmark_main)
target_include_directories(tornval_serial_bench PRIVATE ${PROJECT_SOURCE_DIR}
  ${PROJECT_SOURCE_DIR}/tests)
target_compile_definitions(tornval_serial_bench PRIVATE SERIAL_LINK="$<TARGET_FILE:serial_link>"
  TORNVAL_RECORDING="${PROJECT_SOURCE_DIR}/examples/three-channel-recording.txt")
set_target_properties(tornval_serial_bench PROPERTIES
  RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bench)
add_dependencies(tornval_serial_bench serial_link)
