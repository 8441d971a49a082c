// SPDX-License-Identifier: BSD-3-Clause
#include "packagesizes.h"

#include "rpmlibrary.h"

#include <rpm/header.h>
#include <rpm/rpmlib.h>

using RpmLibrary::Iterator;
using RpmLibrary::TagData;
using RpmLibrary::TransactionSet;

quint64 PackageSizes::sum(const QString &namePattern)
{
    // Without a database there is nothing to sum, and opening one would
    // create it.
    const RpmLibrary::Use library;
    if (!library.hasDatabase())
        return 0;

    TransactionSet transactionSet(rpmtsCreate());
    if (!transactionSet)
        return 0;
    rpmtsSetRootDir(transactionSet.get(), nullptr);
    // A size sum has no use for the digest and signature checks of every
    // header; they cost about half of the library's time per header.
    rpmtsSetVSFlags(transactionSet.get(), RPMVSF_NOHDRCHK | _RPMVSF_NODIGESTS | _RPMVSF_NOSIGNATURES);

    Iterator iterator(rpmtsInitIterator(transactionSet.get(), RPMDBI_PACKAGES, nullptr, 0));
    if (!iterator)
        return 0;
    const QByteArray pattern = namePattern.toUtf8();
    rpmdbSetIteratorRE(iterator.get(), RPMTAG_NAME, RPMMIRE_DEFAULT, pattern.constData());

    quint64 total = 0;
    // Headers belong to the iterator.
    while (Header header = rpmdbNextIterator(iterator.get())) {
        TagData size(rpmtdNew());
        if (headerGet(header, RPMTAG_SIZE, size.get(), HEADERGET_EXT)) {
            if (const uint32_t *value = rpmtdGetUint32(size.get()))
                total += *value;
        }
    }
    return total;
}
