# Compiler options shared by every target of the project.

# Warnings for all project targets.
function(qx_apply_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra)
endfunction()

# The one place that turns on the sanitizers (QX_SANITIZE=ON): library,
# tests, tools and benchmarks all pass through here.
function(qx_apply_sanitizers target)
  if(QX_SANITIZE)
    target_compile_options(${target} PRIVATE
      -fsanitize=address,undefined -fno-sanitize-recover=all
      -fno-omit-frame-pointer)
    target_link_options(${target} PRIVATE -fsanitize=address,undefined)
  endif()
endfunction()

function(qx_target_defaults target)
  qx_apply_warnings(${target})
  qx_apply_sanitizers(${target})
endfunction()
