# Warnings of the project's own targets; consumers inherit none of them.
function(cardo_warnings target)
  if(CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang")
    target_compile_options(${target} PRIVATE
      -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Wold-style-cast
      -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-qual -Wformat=2 -Wundef)
    if(PROJECT_IS_TOP_LEVEL)
      target_compile_options(${target} PRIVATE -Werror)
    endif()
  endif()
endfunction()
