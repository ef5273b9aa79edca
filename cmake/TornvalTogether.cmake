# tornval_together(<target> [ALONE <file>...])
#
# Compiles the files of a target some at a time, where TORNVAL_UNITY asks for it: what they include is then
# read once. Names without linkage have to differ from file to file. What is ALONE stays by itself.
function(tornval_together target)
  cmake_parse_arguments(arg "" "" "ALONE" ${ARGN})
  if(TORNVAL_UNITY)
    set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 12)
    set_source_files_properties(${arg_ALONE} PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)
  endif()
endfunction()
