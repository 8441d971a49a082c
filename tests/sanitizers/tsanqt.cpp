// SPDX-License-Identifier: BSD-3-Clause
// Linked into every program of the ThreadSanitizer build only: what the tool
// needs to know about Debian's uninstrumented Qt.
//
// 1. QMutex.
//
// Debian's Qt is not instrumented. QMutex::lock() and unlock() are out of
// line in libQt5Core and take the lock with plain atomics and, under
// contention, a futex: ThreadSanitizer sees neither, so two threads that
// take turns under one QMutex look to it like a data race. These definitions
// stand in for Qt's own for every call made from our code (the static linker
// binds our calls to a definition in the program before it looks at the
// shared library); they tell ThreadSanitizer about the lock and then call
// Qt's implementation, found behind ours with RTLD_NEXT. Qt's calls inside
// libQt5Core are bound within the library and stay invisible, which is what
// the suppression list is about.
//
// The build links these from an archive whose symbols it keeps out of the
// program's dynamic symbol table (--exclude-libs): the program's own calls
// bind to them, but the shared libraries keep binding to Qt's. libQt5DBus
// locks QMutexes that libQt5Core also takes and releases (inside
// QWaitCondition), invisibly; annotating only libQt5DBus's half would make
// the tool see locks that are never released.
//
// Recursive QMutexes are passed through unannotated: the daemon has none, and
// annotating them would need their depth.
#include <QMutex>
#include <QObject>
#include <QThread>

#include <dlfcn.h>
#include <sanitizer/tsan_interface.h>

#include <cstdio>
#include <cstdlib>

namespace {

template<typename Function>
Function qtImplementation(const char *symbol)
{
    void *address = dlsym(RTLD_NEXT, symbol);
    if (!address) {
        std::fprintf(stderr, "tsanqmutex: %s not found behind the program\n", symbol);
        std::abort();
    }
    return reinterpret_cast<Function>(address);
}

using LockFunction = void (*)(QMutex *);
using TryLockFunction = bool (*)(QMutex *, int);
using UnlockFunction = void (*)(QMutex *);
using DestroyFunction = void (*)(QMutex *);

} // namespace

void QMutex::lock() QT_MUTEX_LOCK_NOEXCEPT
{
    static const auto real = qtImplementation<LockFunction>("_ZN6QMutex4lockEv");
    if (isRecursive()) {
        real(this);
        return;
    }
    __tsan_mutex_pre_lock(this, 0);
    real(this);
    __tsan_mutex_post_lock(this, 0, 0);
}

bool QMutex::tryLock(int timeout) QT_MUTEX_LOCK_NOEXCEPT
{
    static const auto real = qtImplementation<TryLockFunction>("_ZN6QMutex7tryLockEi");
    if (isRecursive())
        return real(this, timeout);
    __tsan_mutex_pre_lock(this, __tsan_mutex_try_lock);
    const bool locked = real(this, timeout);
    __tsan_mutex_post_lock(this, locked ? __tsan_mutex_try_lock : __tsan_mutex_try_lock | __tsan_mutex_try_lock_failed, 0);
    return locked;
}

void QMutex::unlock() noexcept
{
    static const auto real = qtImplementation<UnlockFunction>("_ZN6QMutex6unlockEv");
    if (isRecursive()) {
        real(this);
        return;
    }
    __tsan_mutex_pre_unlock(this, 0);
    real(this);
    __tsan_mutex_post_unlock(this, 0);
}

// Freed memory may hold the next mutex: its state must not carry over.
QMutex::~QMutex()
{
    static const auto real = qtImplementation<DestroyFunction>("_ZN6QMutexD2Ev");
    __tsan_mutex_destroy(this, 0);
    real(this);
}

// 2. QtDBus's connection thread.
//
// QtDBus runs every connection on a thread of its own, its
// QDBusConnectionManager. There it marshals what we send, demarshals what we
// receive, and copies and destroys those values through the meta-type helpers
// that Qt's templates instantiate in our program; the values cross to and from
// our threads through QtDBus's queues and Qt's reference counts, all
// invisible. Nothing of the daemon's own runs on that thread (slots are called
// on their receivers' threads), so the tool is told to ignore the memory
// accesses made there. Qt's hook for new QObjects tells us when the thread
// starts: its event dispatcher is the first object it makes.

extern quintptr qtHookData[];

extern "C" {
// From the tool's runtime: stop (and resume) looking at this thread's memory
// accesses.
void __tsan_ignore_thread_begin();
void __tsan_ignore_thread_end();
}

namespace {

// Qt's hook table layout (QHooks): size at 1, Qt version at 2, the callback
// for new objects at 3.
enum { HookDataSize = 1, HookQtVersion = 2, HookAddQObject = 3 };
using AddQObjectCallback = void (*)(QObject *);
AddQObjectCallback previousAddQObject = nullptr;

// Ends the ignoring when the thread exits, after the last of Qt's own work on
// it (which follows finished()): a thread must not end while ignored.
struct IgnoredUntilExit
{
    IgnoredUntilExit() { __tsan_ignore_thread_begin(); }
    ~IgnoredUntilExit() { __tsan_ignore_thread_end(); }
};

void onQObjectAdded(QObject *object)
{
    if (previousAddQObject)
        previousAddQObject(object);
    static thread_local bool seen = false;
    if (seen)
        return;
    seen = true;
    QThread *thread = QThread::currentThread();
    if (thread && qstrcmp(thread->metaObject()->className(), "QDBusConnectionManager") == 0)
        static thread_local IgnoredUntilExit ignored;
}

struct InstallHook
{
    InstallHook()
    {
        if (qtHookData[HookDataSize] <= HookAddQObject || (qtHookData[HookQtVersion] >> 8) != 0x050f) {
            std::fprintf(stderr, "tsanqt: unexpected Qt hook table; QtDBus's thread stays watched\n");
            return;
        }
        previousAddQObject = reinterpret_cast<AddQObjectCallback>(qtHookData[HookAddQObject]);
        qtHookData[HookAddQObject] = reinterpret_cast<quintptr>(&onQObjectAdded);
    }
};

const InstallHook installHook;

} // namespace
