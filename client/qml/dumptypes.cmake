# SPDX-License-Identifier: BSD-3-Clause
# Describes the built module with qmlplugindump, as plugins.qmltypes holds it:
#   cmake -DQMLPLUGINDUMP=PROGRAM -DIMPORT_DIR=BUILD/qml -DOUTPUT=FILE -P dumptypes.cmake
# writes the description to FILE;
#   cmake -DQMLPLUGINDUMP=PROGRAM -DIMPORT_DIR=BUILD/qml -DEXPECTED=FILE -P dumptypes.cmake
# fails when FILE is not what the module describes.
# The build folder in qmlplugindump's note of its command line is written
# BUILD, so that the description does not depend on where the tree was built;
# the licence line comes first.
set(ENV{QT_QPA_PLATFORM} offscreen)
execute_process(COMMAND ${QMLPLUGINDUMP} -nonrelocatable -noforceqtquick org.norvu.plinth 1.0 ${IMPORT_DIR}
                OUTPUT_VARIABLE types ERROR_VARIABLE errors RESULT_VARIABLE status)
if(NOT status EQUAL 0 OR types STREQUAL "")
    message(FATAL_ERROR "qmlplugindump failed (${status}):\n${errors}")
endif()
string(REPLACE "${IMPORT_DIR}" "BUILD/qml" types "${types}")
# Like every source file of the tree, it names its licence first.
string(PREPEND types "// SPDX-License-Identifier: BSD-3-Clause\n")
if(DEFINED OUTPUT)
    file(WRITE ${OUTPUT} "${types}")
    return()
endif()
file(READ ${EXPECTED} expected)
if(NOT types STREQUAL expected)
    message(FATAL_ERROR "${EXPECTED} does not describe the built module any more: "
                        "write it anew with 'cmake --build BUILD --target plinth_qmltypes'. It is:\n${types}")
endif()
message(STATUS "${EXPECTED} describes the built module")
