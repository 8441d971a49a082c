// SPDX-License-Identifier: BSD-3-Clause
#include "packagedatabase.h"

#include "rpmlibrary.h"

#include <rpm/header.h>
#include <rpm/rpmdb.h>
#include <rpm/rpmlib.h>
#include <rpm/rpmtd.h>
#include <rpm/rpmts.h>

#include <type_traits>
#include <memory>

namespace PackageDatabase {

namespace {

// Scoped owners: each librpm handle is released with its own free function on
// every way out, including the early return of a match.
struct TransactionSetFree {
    void operator()(rpmts ts) const { rpmtsFree(ts); }
};
struct IteratorFree {
    void operator()(rpmdbMatchIterator iterator) const { rpmdbFreeIterator(iterator); }
};
struct TagDataFree {
    void operator()(rpmtd td) const { rpmtdFree(td); }
};

using TransactionSet = std::unique_ptr<std::remove_pointer_t<rpmts>, TransactionSetFree>;
using Iterator = std::unique_ptr<std::remove_pointer_t<rpmdbMatchIterator>, IteratorFree>;
using TagData = std::unique_ptr<std::remove_pointer_t<rpmtd>, TagDataFree>;

} // namespace

bool hasPackageNamed(const QByteArray &name)
{
    const RpmLibrary::Use library;
    if (!library.hasDatabase())
        return false;
    const TransactionSet ts(rpmtsCreate());
    if (!ts)
        return false;
    rpmtsSetRootDir(ts.get(), nullptr);

    // The name index gives exactly the headers a walk over the whole database
    // would find with that name, without reading the others: start-up stays
    // short however many packages are installed. Each name is still compared,
    // so the answer does not depend on how the index matches keys.
    const Iterator packages(rpmtsInitIterator(ts.get(), RPMDBI_NAME, name.constData(), size_t(name.size())));
    if (!packages)
        return false;
    while (Header header = rpmdbNextIterator(packages.get())) {
        const TagData packageName(rpmtdNew());
        if (!headerGet(header, RPMTAG_NAME, packageName.get(), HEADERGET_EXT))
            continue;
        const char *text = rpmtdGetString(packageName.get());
        if (text && name == text)
            return true;
    }
    return false;
}

} // namespace PackageDatabase
