# What makes a fault in the code harder to turn into more than a crash. Each is used where the compiler
# and the processor have it; a test looks at the products for them.
include(CheckCXXCompilerFlag)

# tornval_harden(): for all that is built in this folder and below.
function(tornval_harden)
  foreach(flag -fstack-protector-strong -fstack-clash-protection -fcf-protection=full
      -mbranch-protection=standard)
    string(MAKE_C_IDENTIFIER "TORNVAL_HAS${flag}" has)
    # A warning for an option of another processor counts as not having it.
    set(CMAKE_REQUIRED_FLAGS -Werror)
    check_cxx_compiler_flag(${flag} ${has})
    if(${has})
      add_compile_options(${flag})
    endif()
  endforeach()
  # The checks of lengths come with optimisation, and the sanitizers have their own.
  if(NOT TORNVAL_SANITIZE)
    add_compile_options($<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE>
      $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=2>)
  endif()
  # All symbols are bound at load, and their table is read-only from then on.
  add_link_options(-Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)
endfunction()
