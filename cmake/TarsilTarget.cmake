# What every target of this project has in common. Flags are set on the targets and nowhere else, so that a project
# which includes this one keeps its own.

function(tarsil_configure_target target)
  target_compile_features(${target} PUBLIC cxx_std_20)
  set_target_properties(${target} PROPERTIES
    CXX_EXTENSIONS OFF
    POSITION_INDEPENDENT_CODE ON
    RUNTIME_OUTPUT_DIRECTORY ${tarsil_BINARY_DIR}/bin)
  # Results are the same to the bit on every machine and at every optimisation level: no contraction into fused
  # multiply-adds, and no fast maths even where a surrounding project asks for it.
  target_compile_options(${target} PRIVATE
    -ffp-contract=off -fno-fast-math
    -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
  if(TARSIL_WARNINGS_AS_ERRORS)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
  if(TARSIL_SANITIZE)
    target_compile_options(${target} PRIVATE
      -fsanitize=${TARSIL_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(${target} PUBLIC -fsanitize=${TARSIL_SANITIZE})
  endif()
endfunction()
