// SPDX-License-Identifier: BSD-3-Clause
// File names as the storage walk meets them: which are valid UTF-8, decided
// without building a QString. The walk must leave out exactly the names that
// Qt's own directory listing leaves out, so Qt's UTF-8 decoder is the judge.
#include "fuzzinput.h"

#include "localfilenames.h"

#include <QTextCodec>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const char *bytes = reinterpret_cast<const char *>(data);
    const bool valid = LocalFileNames::isValidUtf8(bytes, size);

    static QTextCodec *const utf8 = QTextCodec::codecForMib(106);
    QTextCodec::ConverterState state(QTextCodec::IgnoreHeader);
    utf8->toUnicode(bytes, int(size), &state);
    const bool validForQt = state.invalidChars == 0 && state.remainingChars == 0;
    if (valid != validForQt) {
        std::fprintf(stderr, "isValidUtf8 says %d, Qt says %d (invalid %d, remaining %d)\n", valid, validForQt,
                     state.invalidChars, state.remainingChars);
    }
    PLINTH_FUZZ_CHECK(valid == validForQt);
    return 0;
}
