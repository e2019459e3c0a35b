# Run by CPack over the staged files of every component: what Debian asks of a package beyond what
# `cmake --install` puts there.

function(run)
  execute_process(COMMAND ${ARGV} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

# The same bytes at every run: neither name nor time of the file goes into the result.
function(compress)
  foreach(file ${ARGV})
    run(gzip --best --no-name --force ${file})
  endforeach()
endfunction()

set(debian ${CMAKE_CURRENT_LIST_DIR}/../packaging/debian)
file(MAKE_DIRECTORY ${CPACK_TEMPORARY_INSTALL_DIRECTORY})
foreach(pair ${CPACK_K7M_PACKAGES})
  string(REPLACE "=" ";" pair ${pair})
  list(GET pair 0 component)
  list(GET pair 1 package)
  set(usr ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/${component}${CPACK_PACKAGING_INSTALL_PREFIX})
  set(doc ${usr}/share/doc/${package})
  if(EXISTS ${usr}/share/doc/k7m)
    file(RENAME ${usr}/share/doc/k7m ${doc})
    # It is the upstream changelog of every package.
    file(REMOVE ${doc}/CHANGELOG.md)
  endif()
  # Debian's zsh looks there for what packages bring along.
  if(EXISTS ${usr}/share/zsh/site-functions)
    file(RENAME ${usr}/share/zsh/site-functions ${usr}/share/zsh/vendor-completions)
  endif()
  file(MAKE_DIRECTORY ${doc})
  configure_file(${debian}/copyright ${doc}/copyright COPYONLY)
  configure_file(${debian}/../../CHANGELOG.md ${doc}/changelog COPYONLY)
  configure_file(${debian}/changelog ${doc}/changelog.Debian COPYONLY)
  compress(${doc}/changelog ${doc}/changelog.Debian)
  file(GLOB pages ${usr}/share/man/man*/*.[1-9])
  compress(${pages})
  file(GLOB archives ${usr}/lib/*.a ${usr}/lib/*/*.a)
  foreach(archive ${archives})
    run(${CPACK_K7M_STRIP} --strip-debug --remove-section=.comment --remove-section=.note
        --enable-deterministic-archives ${archive})
  endforeach()
endforeach()
