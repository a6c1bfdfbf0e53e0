# The project's options, all declared here, and the compiler options shared
# by every target.
#
# Tests, benchmarks and fuzzing default to ON only when QXClassifier is the
# top-level project; a project that embeds it with add_subdirectory gets the
# library and tools alone unless it asks for more.

option(QX_SANITIZE "Build everything with AddressSanitizer and UBSan" OFF)
option(QX_TSAN "Build everything with ThreadSanitizer (not with QX_SANITIZE)" OFF)
option(QX_BUILD_TESTS "Build the GoogleTest suite" ${PROJECT_IS_TOP_LEVEL})
option(QX_BUILD_BENCH "Build the benchmarks (those whose peer libraries are found)" ${PROJECT_IS_TOP_LEVEL})
option(QX_BUILD_FUZZ "Build the fuzz targets and their replay driver" ${PROJECT_IS_TOP_LEVEL})
option(QX_FUZZ "Build libFuzzer binaries for the fuzz targets (clang only)" OFF)
option(QX_BUILD_DATA "Build the code translator's data folder (needs opencc_dict)" ON)

# Warnings for all project targets.
function(qx_apply_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra)
endfunction()

if(QX_SANITIZE AND QX_TSAN)
  message(FATAL_ERROR "QX_SANITIZE and QX_TSAN cannot be combined; build them apart")
endif()

# The one place that turns on the sanitizers (QX_SANITIZE=ON: ASan and UBSan;
# QX_TSAN=ON: ThreadSanitizer): library, tests, tools and benchmarks all pass
# through here.
function(qx_apply_sanitizers target)
  if(QX_SANITIZE)
    target_compile_options(${target} PRIVATE
      -fsanitize=address,undefined -fno-sanitize-recover=all
      -fno-omit-frame-pointer)
    target_link_options(${target} PRIVATE -fsanitize=address,undefined)
  elseif(QX_TSAN)
    target_compile_options(${target} PRIVATE -fsanitize=thread -fno-omit-frame-pointer)
    target_link_options(${target} PRIVATE -fsanitize=thread)
  endif()
endfunction()

function(qx_target_defaults target)
  qx_apply_warnings(${target})
  qx_apply_sanitizers(${target})
endfunction()
