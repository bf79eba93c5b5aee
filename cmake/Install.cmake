# What cmake --install puts where. Every path inside the tree is relative, so that it works wherever
# it is put:
#   include/tarveloqt/           the two headers
#   <lib>/                       libTarveloQT and the card libraries beside it
#   <lib>/cmake/TarveloQT/       find_package(TarveloQT)
#   <lib>/pkgconfig/             pkg-config tarveloqt
#   <lib>/tarvelo/bin, p11/      the programs and the ATR table that they look for in ../p11
#   bin/                         links to the programs
include(CMakePackageConfigHelpers)

set(tarveloqt_programs tarvelo-renew tarvelo-softcard)
set(tarveloqt_card_libraries min_Molvane Tarvelo)
if(TARGET tarvelo_cardstate)
    list(APPEND tarveloqt_card_libraries tarvelo_cardstate)
endif()
set(tarveloqt_tree ${CMAKE_INSTALL_LIBDIR}/tarvelo)
set(tarveloqt_cmake_dir ${CMAKE_INSTALL_LIBDIR}/cmake/TarveloQT)

install(FILES include/card_v_func.h include/renew_context.h
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tarveloqt COMPONENT development)
install(TARGETS TarveloQT
    EXPORT TarveloQTTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT development)
# Not exported: a host links the renewal library alone and takes whichever pair is installed.
install(TARGETS ${tarveloqt_card_libraries}
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT cardlibs)

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

set_target_properties(${tarveloqt_programs} PROPERTIES INSTALL_RPATH "$ORIGIN/../..")
install(TARGETS ${tarveloqt_programs}
    RUNTIME DESTINATION ${tarveloqt_tree}/bin COMPONENT programs)
install(FILES p11/ATR-renew.ini DESTINATION ${tarveloqt_tree}/p11 COMPONENT programs)

file(RELATIVE_PATH tarveloqt_from_bin
    ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR}/tarvelo/bin)
file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/links)
foreach(program IN LISTS tarveloqt_programs)
    file(CREATE_LINK ${tarveloqt_from_bin}/${program} ${PROJECT_BINARY_DIR}/links/${program} SYMBOLIC)
    install(FILES ${PROJECT_BINARY_DIR}/links/${program}
        DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT programs)
endforeach()
