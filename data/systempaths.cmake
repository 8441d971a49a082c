# SPDX-License-Identifier: BSD-3-Clause
# Where the files that other programs read at fixed places go, for one install
# prefix. Read at configure time (for the build tree's copies and the manual
# page) and again at install time by installsystemfiles.cmake, with the
# prefix the install is made with, which `cmake --install --prefix` may
# change.
#
# With the prefix /usr the files go where the system's programs look, as the
# packages install them:
#   the unit         systemd's own folder (its pkg-config file: /lib or /usr/lib)
#   the bus policy   /usr/share/dbus-1/system.d, which the system bus reads
#   the settings     /etc/dconf/db, the only folder dconf reads system
#     database       databases from
# With any other prefix everything stays below it (an install there writes
# nothing elsewhere):
#   the unit         PREFIX/lib/systemd/system (systemd reads it for /usr/local)
#   the bus policy   PREFIX/share/dbus-1/system.d (the system bus reads none
#                    there: see the README for serving from such a prefix)
#   the settings     PREFIX/etc/dconf/db, named by the profile as a file
# A folder chosen in the cache (PLINTHD_SYSTEMD_UNIT_DIR, ...) wins: an
# absolute one as it is, a relative one below the prefix.

# plinthd_system_dir(OUT PREFIX CHOSEN SYSTEM_DEFAULT PREFIX_DEFAULT)
function(plinthd_system_dir out prefix chosen system_default prefix_default)
    if(chosen)
        set(dir ${chosen})
    elseif(prefix STREQUAL "/usr")
        set(dir ${system_default})
    else()
        set(dir ${prefix_default})
    endif()
    if(NOT IS_ABSOLUTE "${dir}")
        set(dir "${prefix}/${dir}")
    endif()
    set(${out} "${dir}" PARENT_SCOPE)
endfunction()

# plinthd_system_paths(PREFIX) sets plinthd_unit_dir, plinthd_policy_dir,
# plinthd_dconf_db_dir and plinthd_dconf_profile_line from the cache's choices
# PLINTHD_SYSTEMD_UNIT_DIR, PLINTHD_DBUS_POLICY_DIR, PLINTHD_DCONF_DB_DIR and
# systemd's own unit folder PLINTHD_SYSTEMD_OWN_UNIT_DIR.
macro(plinthd_system_paths prefix)
    plinthd_system_dir(plinthd_unit_dir "${prefix}" "${PLINTHD_SYSTEMD_UNIT_DIR}"
                       "${PLINTHD_SYSTEMD_OWN_UNIT_DIR}" lib/systemd/system)
    plinthd_system_dir(plinthd_policy_dir "${prefix}" "${PLINTHD_DBUS_POLICY_DIR}"
                       share/dbus-1/system.d share/dbus-1/system.d)
    plinthd_system_dir(plinthd_dconf_db_dir "${prefix}" "${PLINTHD_DCONF_DB_DIR}" /etc/dconf/db etc/dconf/db)
    # dconf finds system databases by name in /etc/dconf/db only; anywhere
    # else the profile names the file. Such a database is read when the
    # daemon starts, not watched: a change takes effect at its next start.
    if(plinthd_dconf_db_dir STREQUAL "/etc/dconf/db")
        set(plinthd_dconf_profile_line "system-db:plinthd")
    else()
        set(plinthd_dconf_profile_line "file-db:${plinthd_dconf_db_dir}/plinthd")
    endif()
endmacro()
