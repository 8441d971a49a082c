// SPDX-License-Identifier: BSD-3-Clause
#include "packagedatabase.h"

#include "rpmlibrary.h"

#include <rpm/header.h>
#include <rpm/rpmlib.h>

namespace PackageDatabase {

bool hasPackageNamed(const QByteArray &name)
{
    const RpmLibrary::Use library;
    if (!library.hasDatabase())
        return false;
    const RpmLibrary::TransactionSet ts(rpmtsCreate());
    if (!ts)
        return false;
    rpmtsSetRootDir(ts.get(), nullptr);

    // The name index gives exactly the headers a walk over the whole database
    // would find with that name, without reading the others: start-up stays
    // short however many packages are installed. Each name is still compared,
    // so the answer does not depend on how the index matches keys.
    const RpmLibrary::Iterator packages(
        rpmtsInitIterator(ts.get(), RPMDBI_NAME, name.constData(), size_t(name.size())));
    if (!packages)
        return false;
    while (Header header = rpmdbNextIterator(packages.get())) {
        const RpmLibrary::TagData packageName(rpmtdNew());
        if (!headerGet(header, RPMTAG_NAME, packageName.get(), HEADERGET_EXT))
            continue;
        const char *text = rpmtdGetString(packageName.get());
        if (text && name == text)
            return true;
    }
    return false;
}

} // namespace PackageDatabase
