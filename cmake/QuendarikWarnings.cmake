# Warnings are errors for everything the project compiles itself.
function(qk_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Werror -Wno-unused-parameter)
endfunction()
