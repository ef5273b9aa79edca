# The serial line: the link's share of an exchange, and the share of the line that uploads reach.
target_sources(tornval_bench PRIVATE SerialLineBench.cpp)
target_link_libraries(tornval_bench PRIVATE serial_link_core tornval_instrument_core)
target_compile_definitions(tornval_bench PRIVATE SERIAL_LINK="$<TARGET_FILE:serial_link>")
add_dependencies(tornval_bench serial_link)
