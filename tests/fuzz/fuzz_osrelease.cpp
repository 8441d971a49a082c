// SPDX-License-Identifier: BSD-3-Clause
// os-release: shell-style KEY=VALUE assignments, read for the OS version.
#include "fuzzinput.h"

#include "devicetree.h"
#include "osrelease.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray text = FuzzInput::bytes(data, size);
    for (const QByteArray &key : {QByteArrayLiteral("VERSION_ID"), QByteArrayLiteral("ID"), QByteArray()}) {
        // A value is one word of one line.
        const QString value = OsRelease::value(text, key);
        PLINTH_FUZZ_CHECK(!value.contains(QLatin1Char('\n')));
    }
    // Whatever comes before it, a well-formed last assignment is the answer,
    // as it is for a shell that sources the file.
    const QByteArray appended = text + QByteArrayLiteral("\nVERSION_ID=\"4.6.0 \\\"beta\\\"\"\n");
    PLINTH_FUZZ_CHECK(OsRelease::value(appended, QByteArrayLiteral("VERSION_ID"))
                      == QStringLiteral("4.6.0 \"beta\""));
    // And the device-tree strings are cut at their first NUL.
    const QByteArray cut = DeviceTree::firstString(text);
    PLINTH_FUZZ_CHECK(!cut.contains('\0') && text.startsWith(cut));
    return 0;
}
