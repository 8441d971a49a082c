// SPDX-License-Identifier: BSD-3-Clause
// The device tree's "compatible" property: NUL-terminated strings of
// "vendor,name", the processor's model taken from the last piece.
#include "fuzzinput.h"

#include "probeparsers.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QString model = ProbeParsers::modelFromCompatible(FuzzInput::bytes(data, size));
    // One piece, upper-cased, cut at its NUL.
    PLINTH_FUZZ_CHECK(!model.contains(QLatin1Char(',')));
    PLINTH_FUZZ_CHECK(!model.contains(QChar(0)));
    PLINTH_FUZZ_CHECK(model == model.toUpper());
    return 0;
}
