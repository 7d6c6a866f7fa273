# The Debian package, made by `cpack -G DEB` in the build folder:
#   package/tarnvel-dhcp-server_<version>_<arch>.deb
# Its version is the project's; its library dependencies come from
# dpkg-shlibdeps. postinst makes the group tarnvel-dhcp, gives /usr/bin/quorvy
# to root:tarnvel-dhcp with mode 0754 and grants cap_net_bind_service; postrm
# takes the group and the override away on purge. The service unit of
# quorvy --headless is shipped but not enabled (deb-systemd-helper).

include(GNUInstallDirs)
set(TARNVEL_PACKAGE_NAME tarnvel-dhcp-server)
set(TARNVEL_MAINTAINER "Tarnvel DHCP Server maintainers <maintainers@users.noreply.c-seed-deebd92b.example>")

set(TARNVEL_PACKAGING_DIR ${CMAKE_CURRENT_LIST_DIR})
set(TARNVEL_PACKAGE_BUILD_DIR ${CMAKE_BINARY_DIR}/packaging)
set(TARNVEL_DOC_DIR ${CMAKE_INSTALL_DATADIR}/doc/${TARNVEL_PACKAGE_NAME})

configure_file(${TARNVEL_PACKAGING_DIR}/debian/copyright.in
  ${TARNVEL_PACKAGE_BUILD_DIR}/copyright @ONLY)
configure_file(${TARNVEL_PACKAGING_DIR}/debian/changelog.in
  ${TARNVEL_PACKAGE_BUILD_DIR}/changelog @ONLY)
# Debian wants the changelog compressed, without a time stamp in the header.
add_custom_command(
  OUTPUT ${TARNVEL_PACKAGE_BUILD_DIR}/changelog.gz
  COMMAND gzip -9nf -k ${TARNVEL_PACKAGE_BUILD_DIR}/changelog
  DEPENDS ${TARNVEL_PACKAGE_BUILD_DIR}/changelog
  VERBATIM)
add_custom_target(tarnvel_changelog ALL DEPENDS ${TARNVEL_PACKAGE_BUILD_DIR}/changelog.gz)

install(FILES
  ${TARNVEL_PACKAGE_BUILD_DIR}/copyright
  ${TARNVEL_PACKAGE_BUILD_DIR}/changelog.gz
  DESTINATION ${TARNVEL_DOC_DIR})

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME ${TARNVEL_PACKAGE_NAME})
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR "Tarnvel DHCP Server developers")
set(CPACK_PACKAGE_CONTACT ${TARNVEL_MAINTAINER})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "small DHCPv4 server driven from a desktop window")
# Lines of at most 80 columns, as the control file wants them.
string(JOIN "\n" CPACK_PACKAGE_DESCRIPTION
  "Tarnvel DHCP Server hands out IPv4 addresses on the local network from one"
  "pool, with subnet mask, default gateway, two DNS servers and lease time. It"
  "keeps reservations, extra raw DHCP options, a lease file for each listening"
  "address, a settings file and an event log, and is configured and watched in"
  "a Qt window (quorvy) with live lease and log views and a tray icon."
  ""
  "Members of the group tarnvel-dhcp run quorvy with the capability"
  "cap_net_bind_service, the one privilege it needs.")
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/package)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES TRUE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# setcap in postinst.
set(CPACK_DEBIAN_PACKAGE_DEPENDS libcap2-bin)
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
  ${TARNVEL_PACKAGING_DIR}/debian/postinst
  ${TARNVEL_PACKAGING_DIR}/debian/prerm
  ${TARNVEL_PACKAGING_DIR}/debian/postrm)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION TRUE)
include(CPack)
