#include "threadhandoff.h"

#if defined(__SANITIZE_THREAD__)

#include "dbustypes.h"

#include <QDBusArgument>
#include <QDBusMetaType>

extern "C" {
// ThreadSanitizer's dynamic annotations; the runtime exports them.
void AnnotateIgnoreReadsBegin(const char *file, int line);
void AnnotateIgnoreReadsEnd(const char *file, int line);
void AnnotateIgnoreWritesBegin(const char *file, int line);
void AnnotateIgnoreWritesEnd(const char *file, int line);
}

namespace {

// QtDBus marshals the maps and lists we hand it (signal arguments, replies)
// on its own connection thread, with Qt's marshalling templates compiled into
// our program. The values are implicitly shared and never changed in place
// while shared; what orders our writes before those reads, and the reads
// before a later free, is QtDBus's queue and Qt's reference counts, all
// inside the uninstrumented libraries. The tool would report every hand-over
// as a race, so it does not look at the marshalling itself.
template<typename T>
void marshallUnwatched(QDBusArgument &argument, const T *value)
{
    AnnotateIgnoreReadsBegin(__FILE__, __LINE__);
    AnnotateIgnoreWritesBegin(__FILE__, __LINE__);
    argument << *value;
    AnnotateIgnoreWritesEnd(__FILE__, __LINE__);
    AnnotateIgnoreReadsEnd(__FILE__, __LINE__);
}

template<typename T>
void demarshall(const QDBusArgument &argument, T *value)
{
    argument >> *value;
}

template<typename T>
void registerUnwatched()
{
    QDBusMetaType::registerMarshallOperators(
            qMetaTypeId<T>(),
            reinterpret_cast<QDBusMetaType::MarshallFunction>(&marshallUnwatched<T>),
            reinterpret_cast<QDBusMetaType::DemarshallFunction>(&demarshall<T>));
}

} // namespace

void ThreadHandoff::annotateBusMarshalling()
{
    registerUnwatched<QVariantMap>();
    registerUnwatched<QVariantMapList>();
}

#else

void ThreadHandoff::annotateBusMarshalling()
{
}

#endif
