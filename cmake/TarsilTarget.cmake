# What every target of this project has in common. Flags are set on the targets and nowhere else, so that a project
# which includes this one keeps its own.

function(tarsil_configure_target target)
  target_compile_features(${target} PUBLIC cxx_std_20)
  # Sources are never put together, even where a surrounding project does that with its own: names that are private to
  # one file may stand in another.
  set_target_properties(${target} PROPERTIES
    CXX_EXTENSIONS OFF
    POSITION_INDEPENDENT_CODE ON
    UNITY_BUILD OFF
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

# For what is shipped, not for tests: makes memory errors that slip through end the program rather than serve an
# attacker. None of it shows in a benchmark. (-D_GLIBCXX_ASSERTIONS would: 2 % of loading, 5 % of the analysis.)
function(tarsil_harden_target target)
  if(NOT TARSIL_HARDENING OR TARSIL_SANITIZE)
    return()
  endif()
  # Fortified calls need the optimiser.
  set(optimised "$<CONFIG:Release,RelWithDebInfo,MinSizeRel>")
  target_compile_options(${target} PRIVATE
    "$<${optimised}:-fstack-protector-strong;-fstack-clash-protection;-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>")
  get_target_property(type ${target} TYPE)
  if(NOT type STREQUAL "STATIC_LIBRARY")
    # Position-independent executables come with the property POSITION_INDEPENDENT_CODE and the check at the top.
    target_link_options(${target} PRIVATE "$<${optimised}:LINKER:-z,relro,-z,now>")
  endif()
endfunction()
