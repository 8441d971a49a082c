# SPDX-License-Identifier: BSD-3-Clause
# Run by `cmake --install` (data/CMakeLists.txt passes what it knows in the
# variables plinthd_*): installs the files whose place, or whose text, depends
# on the prefix the install is made with, which may not be the one the build
# was configured with (`cmake --install --prefix`). The unit and the
# activation file name the daemon of this install; the folders follow
# systempaths.cmake.

include(${plinthd_data_source_dir}/systempaths.cmake)
set(PLINTHD_SYSTEMD_UNIT_DIR "${plinthd_chosen_unit_dir}")
set(PLINTHD_DBUS_POLICY_DIR "${plinthd_chosen_policy_dir}")
set(PLINTHD_DCONF_DB_DIR "${plinthd_chosen_dconf_db_dir}")
set(PLINTHD_SYSTEMD_OWN_UNIT_DIR "${plinthd_systemd_own_unit_dir}")
plinthd_system_paths("${CMAKE_INSTALL_PREFIX}")

# GNUInstallDirs' folders, given relative (below the prefix) or absolute.
function(plinthd_full out dir)
    if(IS_ABSOLUTE "${dir}")
        set(${out} "${dir}" PARENT_SCOPE)
    else()
        set(${out} "${CMAKE_INSTALL_PREFIX}/${dir}" PARENT_SCOPE)
    endif()
endfunction()
plinthd_full(CMAKE_INSTALL_FULL_SBINDIR "${plinthd_sbindir}")
plinthd_full(datarootdir "${plinthd_datarootdir}")
set(PLINTHD_BUS_NAME ${plinthd_bus_name})

# Written into the build tree first, as the install of the prefix sees them,
# in a folder of this install's own: several installs of one build may run at
# once (the tests make them).
string(RANDOM LENGTH 16 run)
set(staged ${plinthd_data_binary_dir}/installing-${run})
file(MAKE_DIRECTORY ${staged})
function(plinthd_stage template name)
    file(READ ${plinthd_data_source_dir}/${template} text)
    string(CONFIGURE "${text}" text @ONLY)
    file(WRITE ${staged}/${name} "${text}")
endfunction()
plinthd_stage(plinthd.service.in plinthd.service)
plinthd_stage(org.norvu.plinth.service.in ${PLINTHD_BUS_NAME}.service)
if(plinthd_dconf_profile_line STREQUAL "system-db:plinthd")
    file(READ ${plinthd_data_source_dir}/dconf/profile/plinthd profile)
else()
    set(profile "${plinthd_dconf_profile_line}\n")
endif()
file(WRITE ${staged}/plinthd "${profile}")

file(INSTALL DESTINATION "${plinthd_unit_dir}" TYPE FILE FILES ${staged}/plinthd.service)
file(INSTALL DESTINATION "${plinthd_policy_dir}" TYPE FILE
     FILES ${plinthd_data_binary_dir}/${PLINTHD_BUS_NAME}.conf)
file(INSTALL DESTINATION "${datarootdir}/dbus-1/system-services" TYPE FILE
     FILES ${staged}/${PLINTHD_BUS_NAME}.service)
file(INSTALL DESTINATION "${datarootdir}/dconf/profile" TYPE FILE
     FILES ${staged}/plinthd)
file(INSTALL DESTINATION "${plinthd_dconf_db_dir}/plinthd.d" TYPE FILE
     FILES ${plinthd_data_source_dir}/dconf/db/plinthd.d/00-plinthd)
file(REMOVE_RECURSE ${staged})

# The settings database is compiled from its keyfiles where it is read. An
# install into a staging folder (DESTDIR, the packages) leaves that to the
# package's scripts on the target. Only this database is compiled ("dconf
# update" would compile every other one too, and fail on their faults).
if("$ENV{DESTDIR}" STREQUAL "")
    message(STATUS "Compiling the dconf database ${plinthd_dconf_db_dir}/plinthd")
    execute_process(COMMAND dconf compile ${plinthd_dconf_db_dir}/plinthd ${plinthd_dconf_db_dir}/plinthd.d
                    RESULT_VARIABLE compiled)
    if(NOT compiled EQUAL 0)
        message(FATAL_ERROR "dconf compile failed (${compiled}); is dconf-cli installed?")
    endif()
endif()
