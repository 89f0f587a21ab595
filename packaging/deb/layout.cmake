# CPack runs this after installing into its staging directory and before building the .deb:
# the Debian layout of what `cmake --install` puts under the prefix, plus the files a package
# owns outside it. A plain `cmake --install` never writes to /etc.
set(root "${CPACK_TEMPORARY_INSTALL_DIRECTORY}")
if(NOT IS_DIRECTORY "${root}/usr")
  message(FATAL_ERROR "pimsnmp package layout: no staged /usr in ${root}")
endif()

# Units: Debian 12's packages ship them in /lib/systemd/system.
if(IS_DIRECTORY "${root}/usr/lib/systemd/system")
  file(MAKE_DIRECTORY "${root}/lib/systemd")
  file(RENAME "${root}/usr/lib/systemd/system" "${root}/lib/systemd/system")
  file(GLOB left "${root}/usr/lib/systemd/*")
  if(NOT left)
    file(REMOVE_RECURSE "${root}/usr/lib/systemd")
  endif()
endif()

# Conffiles. The configuration may hold passphrases: 0640 here, group pimsnmp in postinst.
set(src "${CPACK_PIMSNMP_PACKAGING_DIR}")
file(MAKE_DIRECTORY "${root}/etc/pimsnmp" "${root}/etc/default")
file(COPY_FILE "${src}/pimsnmpd.conf" "${root}/etc/pimsnmp/pimsnmpd.conf")
file(COPY_FILE "${src}/state.json" "${root}/etc/pimsnmp/state.json")
file(COPY_FILE "${src}/pimsnmpd.default" "${root}/etc/default/pimsnmpd")
file(CHMOD "${root}/etc/pimsnmp/pimsnmpd.conf" "${root}/etc/pimsnmp/state.json"
     PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ)
file(CHMOD "${root}/etc/default/pimsnmpd" PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)

# A native package's changelog (Debian policy 12.7), and the modes lintian should not flag.
set(doc "${root}/usr/share/doc/pimsnmp")
string(TIMESTAMP when "%a, %d %b %Y %H:%M:%S +0000" UTC)
file(WRITE "${doc}/changelog"
     "pimsnmp (${CPACK_PACKAGE_VERSION}) unstable; urgency=medium\n\n"
     "  * PimSnmp ${CPACK_PACKAGE_VERSION}; the project's history is its git log.\n\n"
     " -- ${CPACK_PACKAGE_CONTACT}  ${when}\n")
execute_process(COMMAND gzip -9 -n -f "${doc}/changelog" COMMAND_ERROR_IS_FATAL ANY)
file(MAKE_DIRECTORY "${root}/usr/share/lintian/overrides")
file(COPY_FILE "${src}/deb/lintian-overrides" "${root}/usr/share/lintian/overrides/pimsnmp"
     ONLY_IF_DIFFERENT)
