# Warning flags shared by every target of the project; VORX_WERROR makes them errors (CI).
function(vorx_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor
    -Wcast-align -Woverloaded-virtual -Wno-missing-field-initializers)
  if(VORX_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()
