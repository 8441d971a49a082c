// SPDX-License-Identifier: BSD-3-Clause
// A display modes file of the framebuffer or of a DRM connector
// ("U:720x1440p-0"), and the resolution taken from its first mode.
#include "fuzzinput.h"

#include "probeparsers.h"

#include <QRegularExpression>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QStringList lines = ProbeParsers::splitLines(FuzzInput::bytes(data, size));
    FuzzInput::checkLines(lines);
    const QString resolution = ProbeParsers::screenResolution(lines);
    // Nothing, or digits, an x and digits, and nothing else.
    static const QRegularExpression Mode(QStringLiteral("\\A\\d+x\\d+\\z"));
    PLINTH_FUZZ_CHECK(resolution.isNull() || Mode.match(resolution).hasMatch());
    return 0;
}
