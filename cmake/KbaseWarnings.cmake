# Warnings are private to our own targets; a consumer's flags are left alone.
function(kbase_set_warnings target)
  if(MSVC)
    target_compile_options(${target} PRIVATE /W4 /permissive-)
  else()
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow=local
                                             -Wno-missing-field-initializers)
    if(KBASE_WERROR)
      target_compile_options(${target} PRIVATE -Werror)
    endif()
  endif()
endfunction()
