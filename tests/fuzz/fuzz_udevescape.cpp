// SPDX-License-Identifier: BSD-3-Clause
// udev's escaped property values ("\xNN" for unsafe bytes), as the partition
// manager reads file system labels, partition names and drive names.
#include "fuzzinput.h"

#include "blockdevices.h"

#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    // A property value is a C string: it ends at the first NUL.
    const std::string value(reinterpret_cast<const char *>(data), size);
    const QString text = BlockDevices::unescape(value.c_str());
    const QByteArray raw(value.c_str());
    // Never longer than the escaped form; without an escape it is just the
    // value read as UTF-8.
    PLINTH_FUZZ_CHECK(text.size() <= raw.size());
    if (!raw.contains("\\x"))
        PLINTH_FUZZ_CHECK(text == QString::fromUtf8(raw));
    return 0;
}
