# What cmake --install puts where. Every path inside the tree is relative, so that it works wherever
# it is put:
#   include/tarveloqt/           the headers for hosts
#   <lib>/                       libTarveloQT
#   <lib>/cmake/TarveloQT/       find_package(TarveloQT)
#   <lib>/pkgconfig/             pkg-config tarveloqt
#   <lib>/tarvelo/               the card libraries, which another pair can take the place of
#   <lib>/tarvelo/bin, p11/      the programs and the ATR table that they look for in ../p11
#   bin/                         links to the programs
#   share/                       manual pages and completions
# As Debian packages (cmake/Packages.cmake) the table is a link to the administrator's copy in /etc,
# and what belongs together is one component.
include(CMakePackageConfigHelpers)
option(TARVELOQT_DEBIAN_PACKAGES "Lay the installed tree out for Debian packages, to be made by cpack" OFF)

set(tarveloqt_programs tarvelo-renew tarvelo-softcard)
set(tarveloqt_card_libraries min_Molvane Tarvelo)
if(TARGET tarvelo_cardstate)
    list(APPEND tarveloqt_card_libraries tarvelo_cardstate)
endif()
set(tarveloqt_tree ${CMAKE_INSTALL_LIBDIR}/tarvelo)
set(tarveloqt_cmake_dir ${CMAKE_INSTALL_LIBDIR}/cmake/TarveloQT)

install(FILES include/card_v_func.h include/renew_context.h include/card_diagnosis.h
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tarveloqt COMPONENT development)
install(TARGETS TarveloQT
    EXPORT TarveloQTTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT development)
# Not exported: a host links the renewal library alone and takes whichever pair is installed.
install(TARGETS ${tarveloqt_card_libraries}
    LIBRARY DESTINATION ${tarveloqt_tree} COMPONENT cardlibs)

install(EXPORT TarveloQTTargets
    NAMESPACE TarveloQT::
    DESTINATION ${tarveloqt_cmake_dir} COMPONENT development)
configure_package_config_file(cmake/TarveloQTConfig.cmake.in
    ${PROJECT_BINARY_DIR}/cmake/TarveloQTConfig.cmake
    INSTALL_DESTINATION ${tarveloqt_cmake_dir}
    PATH_VARS tarveloqt_tree)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/cmake/TarveloQTConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES
    ${PROJECT_BINARY_DIR}/cmake/TarveloQTConfig.cmake
    ${PROJECT_BINARY_DIR}/cmake/TarveloQTConfigVersion.cmake
    DESTINATION ${tarveloqt_cmake_dir} COMPONENT development)

# pkg-config finds the prefix from the place of its own file.
file(RELATIVE_PATH tarveloqt_pc_prefix
    ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" tarveloqt_pc_prefix "${tarveloqt_pc_prefix}")
configure_file(cmake/tarveloqt.pc.in ${PROJECT_BINARY_DIR}/cmake/tarveloqt.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/cmake/tarveloqt.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

# tarvelo-softcard belongs to our card libraries: it is made of what they share and works with no
# other pair.
set(tarvelo-renew_component programs)
set(tarvelo-softcard_component cardlibs)
set_target_properties(tarvelo-renew PROPERTIES INSTALL_RPATH "$ORIGIN/../..")
set_target_properties(tarvelo-softcard PROPERTIES INSTALL_RPATH "$ORIGIN/..")
file(RELATIVE_PATH tarveloqt_from_bin
    ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR}/tarvelo/bin)
file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/links)
foreach(program IN LISTS tarveloqt_programs)
    install(TARGETS ${program}
        RUNTIME DESTINATION ${tarveloqt_tree}/bin COMPONENT ${${program}_component})
    file(CREATE_LINK ${tarveloqt_from_bin}/${program} ${PROJECT_BINARY_DIR}/links/${program} SYMBOLIC)
    install(FILES ${PROJECT_BINARY_DIR}/links/${program}
        DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT ${${program}_component})
endforeach()

# tarveloqt_install_settings(FILE FOLDER COMPONENT): a file that administrators edit, into a folder of
# the programs' tree. In a Debian package that is a link to their copy in /etc, which upgrades keep.
function(tarveloqt_install_settings file folder component)
    if(NOT TARVELOQT_DEBIAN_PACKAGES)
        install(FILES ${file} DESTINATION ${tarveloqt_tree}/${folder} COMPONENT ${component})
        return()
    endif()
    cmake_path(GET file FILENAME name)
    set(copy ${CMAKE_INSTALL_FULL_SYSCONFDIR}/tarvelo/${name})
    install(FILES ${file} DESTINATION ${CMAKE_INSTALL_FULL_SYSCONFDIR}/tarvelo COMPONENT ${component})
    file(CREATE_LINK ${copy} ${PROJECT_BINARY_DIR}/links/${name} SYMBOLIC)
    install(FILES ${PROJECT_BINARY_DIR}/links/${name}
        DESTINATION ${tarveloqt_tree}/${folder} COMPONENT ${component})
    set_property(GLOBAL APPEND_STRING PROPERTY tarveloqt_conffiles_${component} "${copy}\n")
endfunction()
# The table lies with the card libraries, because its format is theirs.
tarveloqt_install_settings(p11/ATR-renew.ini p11 cardlibs)

# What a folder makes from its program's own definitions, it names in properties of the program:
# lists of files, under the names that they are installed by, made by a target that is part of "all".
set(tarveloqt_zsh_completions site-functions)
if(TARVELOQT_DEBIAN_PACKAGES)
    set(tarveloqt_zsh_completions vendor-completions)
endif()
set(tarveloqt_made_files
    TARVELOQT_MANUAL ${CMAKE_INSTALL_MANDIR}/man1
    TARVELOQT_MANUAL_IT ${CMAKE_INSTALL_MANDIR}/it/man1
    TARVELOQT_BASH_COMPLETION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
    TARVELOQT_ZSH_COMPLETION ${CMAKE_INSTALL_DATADIR}/zsh/${tarveloqt_zsh_completions}
    TARVELOQT_FISH_COMPLETION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
foreach(program IN LISTS tarveloqt_programs)
    set(made_files ${tarveloqt_made_files})
    while(made_files)
        list(POP_FRONT made_files property folder)
        get_target_property(files ${program} ${property})
        if(files)
            install(FILES ${files} DESTINATION ${folder} COMPONENT ${${program}_component})
        endif()
    endwhile()
endforeach()

if(TARVELOQT_DEBIAN_PACKAGES)
    include(cmake/Packages.cmake)
endif()
