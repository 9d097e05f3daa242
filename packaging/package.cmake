# Installation into one application folder and the Debian package:
#   cmake --build build --target package   ->   build/velmora_<version>_amd64.deb
# The program expects its gateway at server/server, the certificate tool and
# the guide beside itself, so all of them share /usr/lib/velmora; the launcher
# /usr/bin/velmora starts it in the user's folder.
set(VELMORA_HOMEPAGE "https://velmora.example.org" CACHE STRING "Home page named in the package and its metadata")
set(VELMORA_MAINTAINER "Velmora maintainers <maintainers@velmora.example.org>"
    CACHE STRING "Maintainer of the Debian package")
# Date of the release PROJECT_VERSION names, for the changelog and the AppStream data.
set(VELMORA_RELEASE_DATE 2026-11-25)

# Paths of the package, which the service unit names literally: the package is
# the supported way to install.
set(VELMORA_PACKAGE_PREFIX /usr)
set(VELMORA_APP_DIR ${VELMORA_PACKAGE_PREFIX}/lib/velmora)
find_package(PkgConfig QUIET)
if(PkgConfig_FOUND)
    pkg_get_variable(VELMORA_UNIT_DIR systemd systemdsystemunitdir)
endif()
if(NOT VELMORA_UNIT_DIR)
    set(VELMORA_UNIT_DIR /lib/systemd/system)
endif()

set(pkg_src ${PROJECT_SOURCE_DIR}/packaging)
set(pkg_out ${PROJECT_BINARY_DIR}/packaging)
execute_process(COMMAND date -R -u -d ${VELMORA_RELEASE_DATE}
    OUTPUT_VARIABLE VELMORA_RELEASE_DATE_RFC OUTPUT_STRIP_TRAILING_WHITESPACE)
configure_file(${pkg_src}/velmora.metainfo.xml.in ${pkg_out}/org.velmora.Velmora.metainfo.xml @ONLY)
configure_file(${pkg_src}/velmora-gateway@.service.in ${pkg_out}/velmora-gateway@.service @ONLY)
configure_file(${pkg_src}/copyright.in ${pkg_out}/copyright @ONLY)
configure_file(${pkg_src}/changelog.in ${pkg_out}/changelog @ONLY)
# Debian wants these compressed reproducibly (no name, no time stamp).
add_custom_command(OUTPUT ${pkg_out}/changelog.gz ${pkg_out}/velmora.1.gz
    COMMAND gzip -9nc ${pkg_out}/changelog > ${pkg_out}/changelog.gz
    COMMAND gzip -9nc ${pkg_src}/velmora.1 > ${pkg_out}/velmora.1.gz
    DEPENDS ${pkg_out}/changelog ${pkg_src}/velmora.1
    VERBATIM)
add_custom_target(velmora_package_docs ALL DEPENDS ${pkg_out}/changelog.gz ${pkg_out}/velmora.1.gz)

install(TARGETS velmora generate_certificate RUNTIME DESTINATION lib/velmora)
install(TARGETS server RUNTIME DESTINATION lib/velmora/server)
install(PROGRAMS ${pkg_src}/launcher.sh DESTINATION bin RENAME velmora)
install(FILES ${pkg_out}/velmora.1.gz DESTINATION share/man/man1)
# The guide is data: it lives under share and the program finds it through a link.
if(TARGET velmora_help)
    install(FILES ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/velmora_help.chm DESTINATION share/velmora)
    file(CREATE_LINK ../../share/velmora/velmora_help.chm ${pkg_out}/velmora_help.chm SYMBOLIC)
    install(FILES ${pkg_out}/velmora_help.chm DESTINATION lib/velmora)
endif()
install(FILES ${PROJECT_SOURCE_DIR}/examples/plant.cfg ${PROJECT_SOURCE_DIR}/examples/small.cfg
    ${PROJECT_SOURCE_DIR}/examples/plant.csv ${PROJECT_SOURCE_DIR}/examples/small.csv
    ${PROJECT_SOURCE_DIR}/examples/modbus-demo.cfg ${PROJECT_SOURCE_DIR}/examples/modbus-demo.csv
    DESTINATION share/velmora/examples)
# The simulated device of the Modbus demo; its Python packages are suggested.
install(FILES ${PROJECT_SOURCE_DIR}/scripts/modbus-sim.py DESTINATION share/velmora)
install(FILES ${pkg_src}/velmora.desktop DESTINATION share/applications)
install(DIRECTORY ${pkg_src}/icons/ DESTINATION share/icons/hicolor)
install(FILES ${pkg_out}/org.velmora.Velmora.metainfo.xml DESTINATION share/metainfo)
install(FILES ${pkg_out}/copyright ${pkg_out}/changelog.gz ${PROJECT_SOURCE_DIR}/README.md
    DESTINATION share/doc/velmora)
install(FILES ${pkg_out}/velmora-gateway@.service DESTINATION ${VELMORA_UNIT_DIR})
# The folder of the service's configurations.
install(DIRECTORY DESTINATION /etc/velmora)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME velmora)
set(CPACK_PACKAGE_VENDOR "The Velmora developers")
set(CPACK_PACKAGE_CONTACT ${VELMORA_MAINTAINER})
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX ${VELMORA_PACKAGE_PREFIX})
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION electronics)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE ${VELMORA_HOMEPAGE})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "configurator and monitor for a Modbus to OPC UA gateway")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION "Velmora builds the tree of channels, devices, groups and tags of a gateway
that publishes Modbus devices over OPC UA, keeps it in one configuration
file, starts the gateway on it and connects to a running gateway as an
OPC UA client to edit it live and watch tag values.

The package also holds the bundled gateway, with a systemd service that runs
it on a configuration in /etc/velmora, and the certificate tool.")
# The libraries come from dpkg-shlibdeps; adduser for the service's account,
# Qt's Russian texts for its dialogs. F1 opens the guide in kchmviewer.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "adduser, qt6-translations-l10n")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "kchmviewer")
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "python3-pymodbus, python3-serial-asyncio")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${pkg_src}/postinst ${pkg_src}/prerm ${pkg_src}/postrm)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
include(CPack)
