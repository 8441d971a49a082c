# SPDX-License-Identifier: BSD-3-Clause
# Writes the build's target graph to targets.json in the build folder, for the
# tests of the tree (tests/integration/test_layers.py, test_links.py): for each
# target of the project its type, folder, sources, include folders and what it
# links, as the CMakeLists say them. The tests read the link lines and include
# paths from there rather than from the built programs, so they need no build
# and run in a fraction of a second. Included at the end of the top
# CMakeLists.txt, when every target exists.

function(_plinth_json_list out)
    set(items "")
    foreach(item IN LISTS ARGN)
        string(REPLACE "\\" "\\\\" item "${item}")
        string(REPLACE "\"" "\\\"" item "${item}")
        list(APPEND items "\"${item}\"")
    endforeach()
    list(JOIN items ", " joined)
    set(${out} "[${joined}]" PARENT_SCOPE)
endfunction()

# A link to an alias (PlinthQt5::PlinthQt5) as a link to the target it names,
# also inside $<LINK_ONLY:...>.
function(_plinth_unaliased out)
    set(items "")
    foreach(item IN LISTS ARGN)
        set(name "${item}")
        if(name MATCHES "^\\$<LINK_ONLY:(.*)>$")
            set(name "${CMAKE_MATCH_1}")
        endif()
        if(TARGET "${name}")
            get_target_property(aliased "${name}" ALIASED_TARGET)
            if(aliased)
                string(REPLACE "${name}" "${aliased}" item "${item}")
            endif()
        endif()
        list(APPEND items "${item}")
    endforeach()
    set(${out} ${items} PARENT_SCOPE)
endfunction()

function(_plinth_targets_below dir out)
    get_property(targets DIRECTORY ${dir} PROPERTY BUILDSYSTEM_TARGETS)
    get_property(subdirs DIRECTORY ${dir} PROPERTY SUBDIRECTORIES)
    foreach(subdir IN LISTS subdirs)
        _plinth_targets_below(${subdir} below)
        list(APPEND targets ${below})
    endforeach()
    set(${out} ${targets} PARENT_SCOPE)
endfunction()

function(plinth_write_target_graph file)
    _plinth_targets_below(${PROJECT_SOURCE_DIR} targets)
    set(entries "")
    foreach(target IN LISTS targets)
        get_target_property(type ${target} TYPE)
        if(type STREQUAL "UTILITY")
            continue()
        endif()
        get_target_property(source_dir ${target} SOURCE_DIR)
        set(fields "\"type\": \"${type}\", \"dir\": \"${source_dir}\"")
        foreach(property SOURCES LINK_LIBRARIES INTERFACE_LINK_LIBRARIES
                         INCLUDE_DIRECTORIES INTERFACE_INCLUDE_DIRECTORIES)
            set(values "")
            # An interface library has no sources, links or include folders of
            # its own, only those it hands on.
            if(NOT type STREQUAL "INTERFACE_LIBRARY" OR property MATCHES "^INTERFACE_")
                get_target_property(values ${target} ${property})
                if(NOT values)
                    set(values "")
                endif()
            endif()
            if(property MATCHES "LINK_LIBRARIES")
                _plinth_unaliased(values ${values})
            endif()
            _plinth_json_list(json ${values})
            string(APPEND fields ", \"${property}\": ${json}")
        endforeach()
        list(APPEND entries "  \"${target}\": {${fields}}")
    endforeach()
    list(JOIN entries ",\n" body)
    file(WRITE ${file} "{\n${body}\n}\n")
endfunction()
