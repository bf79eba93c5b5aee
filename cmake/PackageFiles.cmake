# Run by cpack on the files of each package before it is made: Debian wants manual pages and
# changelogs compressed, without the time of compression.
file(GLOB_RECURSE pages LIST_DIRECTORIES false
    ${CPACK_TEMPORARY_DIRECTORY}/*/usr/share/man/*
    ${CPACK_TEMPORARY_DIRECTORY}/usr/share/man/*)
file(GLOB changelogs
    ${CPACK_TEMPORARY_DIRECTORY}/*/usr/share/doc/*/changelog
    ${CPACK_TEMPORARY_DIRECTORY}/usr/share/doc/*/changelog)
foreach(file IN LISTS pages changelogs)
    if(NOT file MATCHES "[.]gz$")
        execute_process(COMMAND gzip -9 -n ${file} COMMAND_ERROR_IS_FATAL ANY)
    endif()
endforeach()
