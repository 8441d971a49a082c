# SPDX-License-Identifier: BSD-3-Clause
# Read after project() in a cross build (see toolchain.cmake): Qt's code
# generators are the host's, from Debian's qtbase5-dev-tools, of the same Qt
# release as the root's libraries; qmake, asked only where Qt's plugins are,
# is the root's (target-qmake).
foreach(tool moc rcc qdbusxml2cpp qdbuscpp2xml)
    add_executable(Qt5::${tool} IMPORTED)
    set_target_properties(Qt5::${tool} PROPERTIES IMPORTED_LOCATION /usr/lib/qt5/bin/${tool})
endforeach()
add_executable(Qt5::qmake IMPORTED)
set_target_properties(Qt5::qmake PROPERTIES IMPORTED_LOCATION ${CMAKE_CURRENT_LIST_DIR}/target-qmake)
