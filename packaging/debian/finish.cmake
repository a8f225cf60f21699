# Runs between installing into a directory for each package and packing them: adds what Debian wants in every package, and
# puts into Debian's places what has its own there.
find_program(gzip gzip REQUIRED)

# Without a time stamp, so that the same package comes out again.
function(compress)
  execute_process(COMMAND ${gzip} --best --no-name --force ${ARGN} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

foreach(component ${CPACK_COMPONENTS_ALL})
  string(TOUPPER ${component} key)
  set(usr ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/${component}${CPACK_PACKAGING_INSTALL_PREFIX})
  set(documents ${usr}/share/doc/${CPACK_DEBIAN_${key}_PACKAGE_NAME})

  file(COPY ${CPACK_TARSIL_DEBIAN_DIRECTORY}/copyright ${CPACK_TARSIL_DEBIAN_DIRECTORY}/changelog
    DESTINATION ${documents})
  compress(${documents}/changelog)

  # An older libcurl has all symbols, but not all options that are set.
  if(CPACK_DEBIAN_${key}_PACKAGE_SHLIBDEPS)
    file(COPY ${CPACK_TARSIL_DEBIAN_DIRECTORY}/shlibs.local
      DESTINATION ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/${component}/debian)
  endif()

  file(GLOB pages ${usr}/share/man/man*/*)
  if(pages)
    compress(${pages})
  endif()
  if(EXISTS ${usr}/share/zsh/site-functions)
    file(RENAME ${usr}/share/zsh/site-functions ${usr}/share/zsh/vendor-completions)
  endif()
endforeach()
