# Where an install puts things. The parts: runtime (libraries and link libraries), development
# (headers, CMake package, pkg-config, examples), tools (programs, manual, completion), python.
include(CMakePackageConfigHelpers)

set(tornval_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/TornvalC63)
cmake_path(ABSOLUTE_PATH TORNVAL_LINKS_DIR BASE_DIRECTORY ${CMAKE_INSTALL_LIBDIR}
  OUTPUT_VARIABLE tornval_links_dir)
# pkg-config goes by the place of its own file, so that an installed tree can be moved.
cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX BASE_DIRECTORY ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig
  OUTPUT_VARIABLE tornval_pc_prefix)
foreach(folder CMAKE_INSTALL_LIBDIR CMAKE_INSTALL_INCLUDEDIR tornval_links_dir)
  cmake_path(ABSOLUTE_PATH ${folder} BASE_DIRECTORY "\${prefix}" OUTPUT_VARIABLE tornval_pc_${folder})
endforeach()

# tornval_way_to_libraries(<variable> <folder>): the way from an installed folder to the libraries.
function(tornval_way_to_libraries variable folder)
  cmake_path(ABSOLUTE_PATH folder BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX} NORMALIZE
    OUTPUT_VARIABLE from)
  cmake_path(RELATIVE_PATH CMAKE_INSTALL_FULL_LIBDIR BASE_DIRECTORY ${from} OUTPUT_VARIABLE way)
  set(${variable} ${way} PARENT_SCOPE)
endfunction()

# tornval_rpath(<target> <folder it is installed in>): lets it find the libraries from there.
function(tornval_rpath target folder)
  tornval_way_to_libraries(path ${folder})
  set_target_properties(${target} PROPERTIES INSTALL_RPATH "$ORIGIN/${path}")
endfunction()

# tornval_install_library(<target> <header>...): a versioned library that hosts link, by the name
# TornvalC63::<target> in this build and in another one.
function(tornval_install_library target)
  add_library(TornvalC63::${target} ALIAS ${target})
  set_target_properties(${target} PROPERTIES VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR})
  target_include_directories(${target} PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  if(NOT TORNVAL_INSTALL)
    return()
  endif()
  tornval_rpath(${target} ${CMAKE_INSTALL_LIBDIR})
  install(TARGETS ${target} EXPORT TornvalC63Targets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development)
  list(TRANSFORM ARGN PREPEND ${PROJECT_SOURCE_DIR}/include/)
  install(FILES ${ARGN} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/library.pc.in
    ${PROJECT_BINARY_DIR}/pkgconfig/${target}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/pkgconfig/${target}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
endfunction()

# tornval_install_link(<target>): a link library, in the folder that the core services know.
function(tornval_install_link target)
  if(TORNVAL_INSTALL AND TORNVAL_BUILD_LINKS)
    tornval_rpath(${target} ${tornval_links_dir})
    install(TARGETS ${target} LIBRARY DESTINATION ${tornval_links_dir} COMPONENT runtime)
  endif()
endfunction()

# tornval_install_tool(<target>): a program.
function(tornval_install_tool target)
  if(TORNVAL_INSTALL AND TORNVAL_BUILD_TOOLS)
    tornval_rpath(${target} ${CMAKE_INSTALL_BINDIR})
    install(TARGETS ${target} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
  endif()
endfunction()

# What another build finds, and what its writer reads.
function(tornval_install_development)
  install(EXPORT TornvalC63Targets NAMESPACE TornvalC63:: DESTINATION ${tornval_package_dir}
    COMPONENT development)
  configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/TornvalC63Config.cmake.in
    ${PROJECT_BINARY_DIR}/TornvalC63Config.cmake INSTALL_DESTINATION ${tornval_package_dir})
  # Before 1.0 a new minor version may change what hosts see.
  write_basic_package_version_file(${PROJECT_BINARY_DIR}/TornvalC63ConfigVersion.cmake
    COMPATIBILITY SameMinorVersion)
  install(FILES ${PROJECT_BINARY_DIR}/TornvalC63Config.cmake
      ${PROJECT_BINARY_DIR}/TornvalC63ConfigVersion.cmake
    DESTINATION ${tornval_package_dir} COMPONENT development)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples DESTINATION ${CMAKE_INSTALL_DOCDIR}
    COMPONENT development USE_SOURCE_PERMISSIONS)
endfunction()
