# SPDX-License-Identifier: BSD-3-Clause
# Read after project() in a cross build (see toolchain.cmake): Qt's code
# generators are the host's, from Debian's qtbase5-dev-tools, of the same Qt
# release as the root's libraries.
foreach(tool moc rcc qdbusxml2cpp qdbuscpp2xml)
    add_executable(Qt5::${tool} IMPORTED)
    set_target_properties(Qt5::${tool} PROPERTIES IMPORTED_LOCATION /usr/lib/qt5/bin/${tool})
endforeach()
