# Man pages generated from the usage pages, the files only the package installs, and the
# Debian package: `cpack -G DEB` in the build directory (docs/packaging.md).
# Included at the end of the root CMakeLists.txt, so every program's install() rule is
# declared by then and lands in the package as it is.
include(GNUInstallDirs)
find_package(Python3 COMPONENTS Interpreter)
find_program(PIMSNMP_GZIP gzip)

set(PIMSNMP_PACKAGING_DIR ${CMAKE_SOURCE_DIR}/packaging)

# --- man pages ---------------------------------------------------------------------------------
# One line per page: name, section, source page, NAME description, and optionally the one
# "## " section of the source page the man page holds. A page whose source does not exist yet
# is skipped (the glob re-checks at every build, so it appears when its source does).
set(PIMSNMP_MAN_PAGES
    "pimsnmpd|8|docs/pimsnmpd.md|SNMP agent serving PIM-MIB, IPMROUTE-STD-MIB and IP-MCAST-MIB per VRF|"
    "pimsnmpctl|8|docs/pimsnmpd.md|control and feed a running pimsnmpd|pimsnmpctl"
    "pimsnmp-state|5|docs/state-document.md|the state document pimsnmpd serves from|"
    "pimsnmp-frr|8|docs/pimsnmp-frr.md|feed pimsnmpd from FRR's PIM and the kernel's multicast routes|")

file(GLOB pimsnmp_man_sources CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/docs/*.md)
set(pimsnmp_man_present "")
set(pimsnmp_man_links "")
foreach(entry ${PIMSNMP_MAN_PAGES})
  string(REPLACE "|" ";" fields "${entry}")
  list(GET fields 0 name)
  list(GET fields 1 sect)
  list(GET fields 2 src)
  if(${CMAKE_SOURCE_DIR}/${src} IN_LIST pimsnmp_man_sources)
    list(APPEND pimsnmp_man_present "${name}(${sect})")
    get_filename_component(srcname ${src} NAME)
    list(GET fields 4 only)
    if(only STREQUAL "")  # a whole page: links to its file name a reference to the page
      list(APPEND pimsnmp_man_links "${srcname}=${name}(${sect})")
    endif()
  endif()
endforeach()

set(pimsnmp_man_outputs "")
string(TIMESTAMP pimsnmp_man_date "%Y-%m-%d" UTC)  # SOURCE_DATE_EPOCH when set
if(Python3_Interpreter_FOUND AND PIMSNMP_GZIP)
  foreach(entry ${PIMSNMP_MAN_PAGES})
    string(REPLACE "|" ";" fields "${entry}")
    list(GET fields 0 name)
    list(GET fields 1 sect)
    list(GET fields 2 src)
    list(GET fields 3 description)
    list(GET fields 4 only)
    if(NOT "${name}(${sect})" IN_LIST pimsnmp_man_present)
      continue()
    endif()
    set(see_also ${pimsnmp_man_present})
    list(REMOVE_ITEM see_also "${name}(${sect})")
    set(page ${CMAKE_BINARY_DIR}/man/${name}.${sect})
    set(args --name ${name} --section ${sect} --description "${description}"
             --version ${PROJECT_VERSION} --date ${pimsnmp_man_date})
    if(only)
      list(APPEND args --only-section ${only})
    endif()
    add_custom_command(
      OUTPUT ${page} ${page}.gz
      COMMAND ${Python3_EXECUTABLE} ${PIMSNMP_PACKAGING_DIR}/md2man.py ${args}
              --see-also ${see_also} --link ${pimsnmp_man_links}
              -- ${CMAKE_SOURCE_DIR}/${src} ${page}
      COMMAND ${PIMSNMP_GZIP} -9 -n -f -k ${page}
      DEPENDS ${CMAKE_SOURCE_DIR}/${src} ${PIMSNMP_PACKAGING_DIR}/md2man.py
      COMMENT "Generating man page ${name}(${sect})"
      VERBATIM)
    list(APPEND pimsnmp_man_outputs ${page})
    install(FILES ${page}.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man${sect})
  endforeach()
  add_custom_target(man ALL DEPENDS ${pimsnmp_man_outputs})
else()
  message(STATUS "man pages skipped: python3 and gzip needed")
endif()
# The package test lints these.
set(PIMSNMP_MAN_OUTPUTS ${pimsnmp_man_outputs})

# --- files beside the programs -------------------------------------------------------------------
install(FILES ${PIMSNMP_PACKAGING_DIR}/pimsnmp.sysusers
        DESTINATION lib/sysusers.d RENAME pimsnmp.conf)
install(FILES ${CMAKE_SOURCE_DIR}/docs/state.schema.json ${PIMSNMP_PACKAGING_DIR}/state.json
        DESTINATION ${CMAKE_INSTALL_DATADIR}/pimsnmp)
# The usage pages other directories do not install (pimsnmpd.md and the FRR pages are theirs).
foreach(doc state-document.md packaging.md mibs.md)
  if(EXISTS ${CMAKE_SOURCE_DIR}/docs/${doc})
    install(FILES ${CMAKE_SOURCE_DIR}/docs/${doc} DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/pimsnmp)
  endif()
endforeach()

# Units besides pimsnmpd's (which daemon/ installs) get the same treatment: /usr/bin/ in
# ExecStart becomes the installation's binary directory.
file(GLOB pimsnmp_units CONFIGURE_DEPENDS ${PIMSNMP_PACKAGING_DIR}/*.service)
set(PIMSNMP_DEB_UNITS "")
foreach(unit ${pimsnmp_units})
  get_filename_component(unitname ${unit} NAME)
  list(APPEND PIMSNMP_DEB_UNITS ${unitname})
  if(unitname STREQUAL "pimsnmpd.service")
    continue()
  endif()
  install(CODE "
    file(READ \"${unit}\" unit)
    string(REPLACE \"/usr/bin/\" \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}/\" unit \"\${unit}\")
    set(dest \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/lib/systemd/system\")
    file(MAKE_DIRECTORY \"\${dest}\")
    file(WRITE \"\${dest}/${unitname}\" \"\${unit}\")
    message(STATUS \"Installing: \${dest}/${unitname}\")
  ")
endforeach()

# --- the Debian package --------------------------------------------------------------------------
# Only pimsnmpd starts on installation; other units (the FRR feeder needs FRR) are enabled by
# the administrator.
list(JOIN PIMSNMP_DEB_UNITS " " PIMSNMP_DEB_UNITS)
set(PIMSNMP_DEB_START_UNITS pimsnmpd.service)
set(pimsnmp_deb_control ${CMAKE_BINARY_DIR}/packaging/deb)
foreach(script postinst prerm postrm)
  configure_file(${PIMSNMP_PACKAGING_DIR}/deb/${script}.in ${pimsnmp_deb_control}/${script} @ONLY
                 FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
                                  WORLD_READ WORLD_EXECUTE)
endforeach()
configure_file(${PIMSNMP_PACKAGING_DIR}/deb/conffiles ${pimsnmp_deb_control}/conffiles COPYONLY)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME pimsnmp)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(PIMSNMP_DEB_MAINTAINER "PimSnmp maintainers <pimsnmp@example.org>"
    CACHE STRING "Maintainer field of the Debian package")
set(CPACK_PACKAGE_CONTACT "${PIMSNMP_DEB_MAINTAINER}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "SNMP agent for PIM and multicast routing MIBs per VRF")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "adduser")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "snmp")
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "snmpd, frr")
# The summary above is the first line; this is the long description under it.
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
    "pimsnmpd serves PIM-MIB (RFC 2934, with the pimNeighborLoss notification),
IPMROUTE-STD-MIB (RFC 2932) and IP-MCAST-MIB (RFC 5132) for every VRF of a
router, as a net-snmp master agent or as an AgentX subagent, from a JSON
state document and merge patches sent to its feed socket.")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
    ${pimsnmp_deb_control}/postinst ${pimsnmp_deb_control}/prerm ${pimsnmp_deb_control}/postrm
    ${pimsnmp_deb_control}/conffiles)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_PRE_BUILD_SCRIPTS ${PIMSNMP_PACKAGING_DIR}/deb/layout.cmake)
set(CPACK_PIMSNMP_PACKAGING_DIR ${PIMSNMP_PACKAGING_DIR})
include(CPack)
