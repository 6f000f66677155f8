# Warning set shared by every target of the project.
function(kiv_target_warnings target)
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual
    -Wcast-align -Wformat=2 -Wmissing-declarations
    # GCC 12 reports impossible overlaps inside std::string at -O3
    # (GCC bug 105329); the warning finds nothing real in this code base.
    $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>)
  if(KIV_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()
