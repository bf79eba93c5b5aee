# Debian packages, one for each component of the installed tree. cpack makes them in a build folder
# that was configured for it, as scripts/package does.
if(NOT CMAKE_INSTALL_PREFIX STREQUAL "/usr")
    message(FATAL_ERROR "TARVELOQT_DEBIAN_PACKAGES needs CMAKE_INSTALL_PREFIX=/usr, from the first "
        "configuration of the build folder on: the folder of the libraries depends on it")
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME tarveloqt)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT
    "TarveloQT maintainers <maintainers@tarveloqt.example>")
# Each package has a summary of its own, the first line of its description.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(CPACK_STRIP_FILES ON)
# The administrator's files have an absolute path; without this they would go to this machine's /etc.
set(CPACK_SET_DESTDIR ON)
set(CPACK_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/PackageFiles.cmake)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL library development cardlibs programs)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SOURCE tarveloqt)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# Where dpkg-shlibdeps finds what lies in another of these packages.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/lib)

set(tarveloqt_this_version "(= ${PROJECT_VERSION})")
# Any pair of card libraries bears the name tarvelo-card-pair, and one alone can be installed.
set(tarveloqt_any_pair "tarvelo-cardlibs | tarvelo-card-pair")

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME libtarveloqt1)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_DEPENDS ${tarveloqt_any_pair})

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libtarveloqt-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
    "libtarveloqt1 ${tarveloqt_this_version}, qtbase5-dev (>= 5.15)")

# What the table names is loaded at run time: the modules for software and for physical cards, and
# the service that has the readers.
set(CPACK_DEBIAN_CARDLIBS_PACKAGE_NAME tarvelo-cardlibs)
set(CPACK_DEBIAN_CARDLIBS_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_CARDLIBS_PACKAGE_RECOMMENDS "libsofthsm2, opensc-pkcs11, pcscd")
set(CPACK_DEBIAN_CARDLIBS_PACKAGE_PROVIDES tarvelo-card-pair)
set(CPACK_DEBIAN_CARDLIBS_PACKAGE_CONFLICTS tarvelo-card-pair)
set(CPACK_DEBIAN_CARDLIBS_PACKAGE_REPLACES tarvelo-card-pair)

set(CPACK_DEBIAN_PROGRAMS_PACKAGE_NAME tarvelo-renew)
set(CPACK_DEBIAN_PROGRAMS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PROGRAMS_PACKAGE_DEPENDS
    "libtarveloqt1 (>= ${PROJECT_VERSION}), ${tarveloqt_any_pair}")

foreach(component IN LISTS CPACK_COMPONENTS_ALL)
    string(TOUPPER ${component} upper)
    set(package ${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
    set(folder ${PROJECT_SOURCE_DIR}/packaging/${package})
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${folder}/description)
    file(READ ${folder}/description description)
    # A line break at its end would end the control file's paragraph.
    string(STRIP "${description}" CPACK_COMPONENT_${upper}_DESCRIPTION)
    set(control_files "")
    foreach(control IN ITEMS shlibs triggers)
        if(EXISTS ${folder}/${control})
            configure_file(${folder}/${control} ${PROJECT_BINARY_DIR}/packaging/${package}/${control} @ONLY)
            list(APPEND control_files ${PROJECT_BINARY_DIR}/packaging/${package}/${control})
        endif()
    endforeach()
    get_property(conffiles GLOBAL PROPERTY tarveloqt_conffiles_${component})
    if(conffiles)
        file(WRITE ${PROJECT_BINARY_DIR}/packaging/${package}/conffiles "${conffiles}")
        list(APPEND control_files ${PROJECT_BINARY_DIR}/packaging/${package}/conffiles)
    endif()
    set(CPACK_DEBIAN_${upper}_PACKAGE_CONTROL_EXTRA ${control_files})
    install(FILES packaging/copyright packaging/changelog
        DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package} COMPONENT ${component})
    if(EXISTS ${folder}/lintian-overrides)
        install(FILES ${folder}/lintian-overrides
            DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides RENAME ${package}
            COMPONENT ${component})
    endif()
endforeach()
install(FILES docs/atr-table.md docs/card-layout.md docs/errors.md
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/tarvelo-cardlibs COMPONENT cardlibs)
install(FILES docs/host-guide.md
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/libtarveloqt-dev COMPONENT development)
install(FILES docs/examples/minimal_host.cpp docs/examples/reader_report.cpp
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/libtarveloqt-dev/examples COMPONENT development)
# What scripts rely on: the form of the --json answers.
install(DIRECTORY docs/json
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/tarvelo-renew COMPONENT programs
    FILES_MATCHING PATTERN *.schema.json)

include(CPack)
