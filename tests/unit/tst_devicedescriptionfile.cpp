// SPDX-License-Identifier: BSD-3-Clause
#include "devicedescriptionfile.h"
#include "mountnamespace.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLoggingCategory>
#include <QProcess>
#include <QSet>
#include <QTemporaryDir>
#include <QTest>

#include <atomic>
#include <thread>

#include <sys/stat.h>
#include <unistd.h>

namespace {

// What "left untouched" means: same bytes, same inode (no replacement by
// rename), same modification time, same mode and owner.
struct FileState
{
    QByteArray content;
    ino_t inode = 0;
    struct timespec modified = {};
    mode_t mode = 0;
    uid_t owner = 0;
    gid_t group = 0;

    static FileState of(const QString &path)
    {
        FileState state;
        QFile file(path);
        if (file.open(QIODevice::ReadOnly))
            state.content = file.readAll();
        struct stat info;
        if (::stat(QFile::encodeName(path).constData(), &info) == 0) {
            state.inode = info.st_ino;
            state.modified = info.st_mtim;
            state.mode = info.st_mode;
            state.owner = info.st_uid;
            state.group = info.st_gid;
        }
        return state;
    }

    bool operator==(const FileState &other) const
    {
        return content == other.content && inode == other.inode && modified.tv_sec == other.modified.tv_sec
            && modified.tv_nsec == other.modified.tv_nsec && mode == other.mode && owner == other.owner
            && group == other.group;
    }
};

const uid_t NobodyId = 65534;

} // namespace

class TestDeviceDescriptionFile : public QObject
{
    Q_OBJECT

private slots:
    void init();

    void defaultPath();
    void missingFileIsNotCreated();
    void contentWithoutKeysIsLeftUntouched_data();
    void contentWithoutKeysIsLeftUntouched();
    void entryWithoutCameraGainsOne();
    void arrayIsReplacedNotExtended();
    void firstKeyInQtOrderIsTheDevice();
    void entriesThatAreNotObjectsAreReplaced();
    void writesIndentedDocument();
    void keepsMode();
    void keepsOwner();
    void writtenInPlaceWhenOwnerCannotBeKept();
    void followsSymlink();
    void readOnlyFileIsLeftUntouchedSilently();
    void writtenInPlaceWhenDirectoryIsReadOnly();
    void writtenInPlaceWhenFileIsABindMount();
    void failedInPlaceWriteLeavesOldContent();
    void keysDifferingAfterNulLeaveFileUntouched();
    void readerNeverSeesPartialDocument();

private:
    QString writeSpec(const QByteArray &content, mode_t mode = 0644);
    QJsonObject readSpec() const;
    QProcess *runRecorder(const QStringList &arguments, bool asNobody);
    void verifyRewrittenInPlace(const FileState &before, double value) const;

    QScopedPointer<QTemporaryDir> m_dir;
    QString m_path;
};

void TestDeviceDescriptionFile::init()
{
    m_dir.reset(new QTemporaryDir);
    QVERIFY(m_dir->isValid());
    m_path = m_dir->filePath(QStringLiteral("specification.json"));
}

QString TestDeviceDescriptionFile::writeSpec(const QByteArray &content, mode_t mode)
{
    QFile file(m_path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        qFatal("cannot write the test file %s", qPrintable(m_path));
    file.close();
    ::chmod(QFile::encodeName(m_path).constData(), mode);
    return m_path;
}

QJsonObject TestDeviceDescriptionFile::readSpec() const
{
    QFile file(m_path);
    if (!file.open(QIODevice::ReadOnly))
        return QJsonObject();
    return QJsonDocument::fromJson(file.readAll()).object();
}

void TestDeviceDescriptionFile::defaultPath()
{
    QCOMPARE(DeviceDescriptionFile().path(), QStringLiteral("/etc/plinth/specification.json"));
    QCOMPARE(DeviceDescriptionFile::defaultPath(), QStringLiteral("/etc/plinth/specification.json"));
}

void TestDeviceDescriptionFile::missingFileIsNotCreated()
{
    QVERIFY(!DeviceDescriptionFile(m_path).record(QStringLiteral("backResolutions"), 12));
    QVERIFY(!QFileInfo::exists(m_path));
    // Nothing else appears in the folder either, such as a temporary file.
    QCOMPARE(QDir(m_dir->path()).entryList(QDir::NoDotAndDotDot | QDir::AllEntries | QDir::Hidden), QStringList());
}

void TestDeviceDescriptionFile::contentWithoutKeysIsLeftUntouched_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("empty object") << QByteArray("{}\n");
    QTest::newRow("malformed") << QByteArray("{\"phone\": {\"camera\": ");
    QTest::newRow("trailing garbage") << QByteArray("{\"phone\": {}} x");
    QTest::newRow("array") << QByteArray("[{\"phone\": {}}]");
    QTest::newRow("string") << QByteArray("\"phone\"");
    QTest::newRow("binary") << QByteArray("\x00\xff\xfe{", 4);
}

void TestDeviceDescriptionFile::contentWithoutKeysIsLeftUntouched()
{
    QFETCH(QByteArray, content);
    writeSpec(content);
    const FileState before = FileState::of(m_path);

    QVERIFY(!DeviceDescriptionFile(m_path).record(QStringLiteral("frontResolutions"), 2));
    QVERIFY(FileState::of(m_path) == before);
}

void TestDeviceDescriptionFile::entryWithoutCameraGainsOne()
{
    writeSpec(R"({"phone": {"name": "Vireo One", "ram": 4}})");

    QVERIFY(DeviceDescriptionFile(m_path).record(QStringLiteral("frontResolutions"), 5));

    const QJsonObject expected{{QStringLiteral("phone"),
                                QJsonObject{{QStringLiteral("name"), QStringLiteral("Vireo One")},
                                            {QStringLiteral("ram"), 4},
                                            {QStringLiteral("camera"),
                                             QJsonObject{{QStringLiteral("frontResolutions"), QJsonArray{5}}}}}}};
    QCOMPARE(readSpec(), expected);
}

void TestDeviceDescriptionFile::arrayIsReplacedNotExtended()
{
    writeSpec(R"({"phone": {"camera": {"backResolutions": [8, 12, 48], "frontResolutions": [2],
                                       "flash": true}}})");

    QVERIFY(DeviceDescriptionFile(m_path).record(QStringLiteral("backResolutions"), 12));

    const QJsonObject camera = readSpec().value(QLatin1String("phone")).toObject().value(QLatin1String("camera")).toObject();
    QCOMPARE(camera.value(QLatin1String("backResolutions")).toArray(), QJsonArray{12});
    QCOMPARE(camera.value(QLatin1String("frontResolutions")).toArray(), QJsonArray{2});
    QCOMPARE(camera.value(QLatin1String("flash")), QJsonValue(true));
    QCOMPARE(camera.size(), 3);

    // A second measurement replaces the first again.
    QVERIFY(DeviceDescriptionFile(m_path).record(QStringLiteral("backResolutions"), 0));
    QCOMPARE(readSpec().value(QLatin1String("phone")).toObject().value(QLatin1String("camera")).toObject()
                 .value(QLatin1String("backResolutions")).toArray(),
             QJsonArray{0});
}

// Qt keeps object keys sorted by UTF-16 code unit, so upper case sorts before
// lower case and the order in the file does not matter.
void TestDeviceDescriptionFile::firstKeyInQtOrderIsTheDevice()
{
    writeSpec(R"({"zeta": {"camera": {}}, "alpha": {}, "Zulu": {"id": 1}, "beta": 3})");

    QVERIFY(DeviceDescriptionFile(m_path).record(QStringLiteral("backResolutions"), 12));

    const QJsonObject document = readSpec();
    QCOMPARE(document.value(QLatin1String("Zulu")).toObject(),
             (QJsonObject{{QStringLiteral("id"), 1},
                          {QStringLiteral("camera"), QJsonObject{{QStringLiteral("backResolutions"), QJsonArray{12}}}}}));
    QCOMPARE(document.value(QLatin1String("zeta")).toObject(), (QJsonObject{{QStringLiteral("camera"), QJsonObject()}}));
    QCOMPARE(document.value(QLatin1String("alpha")).toObject(), QJsonObject());
    QCOMPARE(document.value(QLatin1String("beta")), QJsonValue(3));
    QCOMPARE(document.size(), 4);
}

void TestDeviceDescriptionFile::entriesThatAreNotObjectsAreReplaced()
{
    const QJsonObject onlyBack{{QStringLiteral("backResolutions"), QJsonArray{12}}};

    writeSpec(R"({"phone": 5})");
    QVERIFY(DeviceDescriptionFile(m_path).record(QStringLiteral("backResolutions"), 12));
    QCOMPARE(readSpec(), (QJsonObject{{QStringLiteral("phone"), QJsonObject{{QStringLiteral("camera"), onlyBack}}}}));

    writeSpec(R"({"phone": {"camera": [1, 2], "name": "x"}})");
    QVERIFY(DeviceDescriptionFile(m_path).record(QStringLiteral("backResolutions"), 12));
    QCOMPARE(readSpec(), (QJsonObject{{QStringLiteral("phone"), QJsonObject{{QStringLiteral("camera"), onlyBack},
                                                                          {QStringLiteral("name"), QStringLiteral("x")}}}}));
}

void TestDeviceDescriptionFile::writesIndentedDocument()
{
    writeSpec(R"({"phone":{"name":"x","camera":{"frontResolutions":[0]}}})");

    QVERIFY(DeviceDescriptionFile(m_path).record(QStringLiteral("backResolutions"), 12));

    QFile file(m_path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), QByteArray("{\n"
                                        "    \"phone\": {\n"
                                        "        \"camera\": {\n"
                                        "            \"backResolutions\": [\n"
                                        "                12\n"
                                        "            ],\n"
                                        "            \"frontResolutions\": [\n"
                                        "                0\n"
                                        "            ]\n"
                                        "        },\n"
                                        "        \"name\": \"x\"\n"
                                        "    }\n"
                                        "}\n"));
}

void TestDeviceDescriptionFile::keepsMode()
{
    for (const mode_t mode : {mode_t(0600), mode_t(0640), mode_t(0604), mode_t(0664)}) {
        writeSpec(R"({"phone": {}})", mode);
        const ino_t inode = FileState::of(m_path).inode;
        QVERIFY(DeviceDescriptionFile(m_path).record(QStringLiteral("backResolutions"), 12));
        const FileState after = FileState::of(m_path);
        QCOMPARE(after.mode & 07777, mode);
        // Replaced, not rewritten in place: that is what makes it atomic.
        QVERIFY(after.inode != inode);
    }
}

void TestDeviceDescriptionFile::keepsOwner()
{
    if (::geteuid() != 0)
        QSKIP("giving a file to another user needs root");
    writeSpec(R"({"phone": {}})", 0640);
    QVERIFY(::chown(QFile::encodeName(m_path).constData(), NobodyId, NobodyId) == 0);

    QVERIFY(DeviceDescriptionFile(m_path).record(QStringLiteral("backResolutions"), 12));

    const FileState after = FileState::of(m_path);
    QCOMPARE(after.owner, NobodyId);
    QCOMPARE(after.group, gid_t(NobodyId));
    QCOMPARE(after.mode & 07777, mode_t(0640));
    QVERIFY(!readSpec().value(QLatin1String("phone")).toObject().isEmpty());
}

// The daemon's unit gives root no CAP_CHOWN: a new file could not be given to
// the old one's owner, and replacing the file would hand it to root. The file
// is written in place instead, which keeps its owner.
void TestDeviceDescriptionFile::writtenInPlaceWhenOwnerCannotBeKept()
{
    if (::geteuid() != 0)
        QSKIP("giving a file to another user needs root");
    writeSpec(R"({"phone": {}})", 0640);
    QVERIFY(::chown(QFile::encodeName(m_path).constData(), NobodyId, NobodyId) == 0);
    const FileState before = FileState::of(m_path);

    // As root, but with CAP_CHOWN out of the bounding set, which is what the
    // unit's CapabilityBoundingSet does to the daemon.
    auto *recorder = new QProcess(this);
    recorder->start(QStringLiteral("setpriv"),
                    {QStringLiteral("--bounding-set=-chown"), QCoreApplication::applicationFilePath(),
                     QStringLiteral("--record"), m_path, QStringLiteral("backResolutions"), QStringLiteral("12")});
    QVERIFY(recorder->waitForFinished(10000));

    QCOMPARE(recorder->exitStatus(), QProcess::NormalExit);
    QCOMPARE(recorder->exitCode(), 0);
    verifyRewrittenInPlace(before, 12);
}

// Installations may point the path at a file elsewhere; the link stays a link
// and its target gets the new content.
void TestDeviceDescriptionFile::followsSymlink()
{
    const QString target = m_dir->filePath(QStringLiteral("real.json"));
    QFile real(target);
    QVERIFY(real.open(QIODevice::WriteOnly));
    real.write(R"({"phone": {}})");
    real.close();
    QVERIFY(QFile::link(target, m_path));

    QVERIFY(DeviceDescriptionFile(m_path).record(QStringLiteral("frontResolutions"), 0));

    QVERIFY(QFileInfo(m_path).isSymLink());
    QVERIFY(!readSpec().value(QLatin1String("phone")).toObject().value(QLatin1String("camera")).toObject().isEmpty());
}

// Same inode, owner and mode as before, the new value in the first entry, and
// no temporary file left beside it.
void TestDeviceDescriptionFile::verifyRewrittenInPlace(const FileState &before, double value) const
{
    const FileState after = FileState::of(m_path);
    QCOMPARE(after.inode, before.inode);
    QCOMPARE(after.owner, before.owner);
    QCOMPARE(after.group, before.group);
    QCOMPARE(after.mode, before.mode);
    QCOMPARE(readSpec().value(QLatin1String("phone")).toObject().value(QLatin1String("camera")).toObject()
                 .value(QLatin1String("backResolutions")).toArray(),
             QJsonArray{value});
    QCOMPARE(QDir(m_dir->path()).entryList(QDir::NoDotAndDotDot | QDir::AllEntries | QDir::Hidden),
             QStringList{QStringLiteral("specification.json")});
}

// Runs this test binary as a one-shot recorder (see main()), as the user
// nobody when asked to and when this process may switch users.
QProcess *TestDeviceDescriptionFile::runRecorder(const QStringList &arguments, bool asNobody)
{
    auto *process = new QProcess(this);
    const QString self = QCoreApplication::applicationFilePath();
    if (asNobody) {
        process->start(QStringLiteral("setpriv"),
                       QStringList{QStringLiteral("--reuid=%1").arg(NobodyId), QStringLiteral("--regid=%1").arg(NobodyId),
                                   QStringLiteral("--clear-groups"), self, QStringLiteral("--record")}
                           + arguments);
    } else {
        process->start(self, QStringList{QStringLiteral("--record")} + arguments);
    }
    if (!process->waitForFinished(10000))
        qFatal("the recorder did not finish");
    return process;
}

// Read-only for the daemon's user, while the folder is writable: a rename
// could replace the file all the same, so only asking whether the file itself
// may be written keeps it untouched. Without root the test's own user is used;
// as root (CI) the recorder runs as nobody, because root may write anything.
void TestDeviceDescriptionFile::readOnlyFileIsLeftUntouchedSilently()
{
    const bool asRoot = ::geteuid() == 0;
    writeSpec(R"({"phone": {"camera": {"backResolutions": [8]}}})", 0444);
    QVERIFY(::chmod(QFile::encodeName(m_dir->path()).constData(), 0777) == 0);
    const FileState before = FileState::of(m_path);

    QProcess *recorder = runRecorder({m_path, QStringLiteral("backResolutions"), QStringLiteral("12")}, asRoot);

    QCOMPARE(recorder->exitStatus(), QProcess::NormalExit);
    QCOMPARE(recorder->exitCode(), 1);
    QCOMPARE(recorder->readAllStandardError(), QByteArray());
    QCOMPARE(recorder->readAllStandardOutput(), QByteArray());
    QVERIFY(FileState::of(m_path) == before);
    QCOMPARE(QDir(m_dir->path()).entryList(QDir::NoDotAndDotDot | QDir::AllEntries | QDir::Hidden),
             QStringList{QStringLiteral("specification.json")});
}

// A writable file in a folder the daemon may not write to cannot be replaced,
// only rewritten in place.
void TestDeviceDescriptionFile::writtenInPlaceWhenDirectoryIsReadOnly()
{
    const bool asRoot = ::geteuid() == 0;
    writeSpec(R"({"phone": {}})", 0644);
    if (asRoot)
        QVERIFY(::chown(QFile::encodeName(m_path).constData(), NobodyId, NobodyId) == 0);
    QVERIFY(::chmod(QFile::encodeName(m_dir->path()).constData(), 0555) == 0);
    const FileState before = FileState::of(m_path);

    QProcess *recorder = runRecorder({m_path, QStringLiteral("backResolutions"), QStringLiteral("12")}, asRoot);

    QVERIFY(::chmod(QFile::encodeName(m_dir->path()).constData(), 0700) == 0);
    QCOMPARE(recorder->exitStatus(), QProcess::NormalExit);
    QCOMPARE(recorder->exitCode(), 0);
    verifyRewrittenInPlace(before, 12);
}

// A file bind-mounted over the path (an image's way of shipping it) cannot be
// renamed over: EBUSY. The bind mount's source gets the new content.
void TestDeviceDescriptionFile::writtenInPlaceWhenFileIsABindMount()
{
    if (!MountNamespace::inside())
        QSKIP("bind mounts need root in a mount namespace of its own");
    const QString source = m_dir->filePath(QStringLiteral("shipped.json"));
    writeSpec(R"({"phone": {}})", 0644);
    QVERIFY(QFile::copy(m_path, source));
    QVERIFY(MountNamespace::mount({QStringLiteral("--bind"), source, m_path}));
    const FileState before = FileState::of(m_path);

    const bool written = DeviceDescriptionFile(m_path).record(QStringLiteral("backResolutions"), 12);

    const FileState after = FileState::of(m_path);
    QVERIFY(QProcess::execute(QStringLiteral("umount"), {m_path}) == 0);
    QVERIFY(written);
    QCOMPARE(after.inode, before.inode);
    const QJsonObject camera = QJsonDocument::fromJson(FileState::of(source).content)
                                   .object().value(QLatin1String("phone")).toObject()
                                   .value(QLatin1String("camera")).toObject();
    QCOMPARE(camera.value(QLatin1String("backResolutions")).toArray(), QJsonArray{12});
}

// The in-place write runs out of space halfway: the old document is put back
// rather than left cut off. A tiny file system that the file nearly fills, in
// a folder the recorder (nobody) may not write to, so only in place is left.
void TestDeviceDescriptionFile::failedInPlaceWriteLeavesOldContent()
{
    if (!MountNamespace::inside())
        QSKIP("a small file system needs root in a mount namespace of its own");
    const int pageSize = int(::sysconf(_SC_PAGESIZE));
    const QString folder = m_dir->filePath(QStringLiteral("small"));
    QVERIFY(QDir().mkpath(folder));
    QVERIFY(::chmod(QFile::encodeName(m_dir->path()).constData(), 0755) == 0);
    QVERIFY(MountNamespace::mount({QStringLiteral("-t"), QStringLiteral("tmpfs"), QStringLiteral("-o"),
                                   QStringLiteral("size=%1,mode=0555").arg(4 * pageSize), QStringLiteral("tmpfs"), folder}));
    const QString path = QDir(folder).filePath(QStringLiteral("specification.json"));
    // Compact, it ends just short of the third page's end; indented and with
    // the camera entry, it needs a fourth, which the filler has taken.
    const QJsonObject document{{QStringLiteral("phone"), QJsonObject()},
                               {QStringLiteral("zz-notes"), QString(3 * pageSize - 40, QLatin1Char('x'))}};
    {
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        QVERIFY(file.write(QJsonDocument(document).toJson(QJsonDocument::Compact)) > 0);
        QVERIFY(file.flush());
        file.close();
        QFile filler(QDir(folder).filePath(QStringLiteral("filler")));
        QVERIFY(filler.open(QIODevice::WriteOnly));
        while (filler.write(QByteArray(512, 'f')) == 512 && filler.flush()) {
        }
    }
    QVERIFY(::chown(QFile::encodeName(path).constData(), NobodyId, NobodyId) == 0);
    const QByteArray before = FileState::of(path).content;

    // The indented document with the camera entry is longer than the compact
    // one and no longer fits.
    QProcess *recorder = runRecorder({path, QStringLiteral("backResolutions"), QStringLiteral("12")}, true);

    const QByteArray after = FileState::of(path).content;
    QVERIFY(QProcess::execute(QStringLiteral("umount"), {folder}) == 0);
    QCOMPARE(recorder->exitStatus(), QProcess::NormalExit);
    QCOMPARE(recorder->exitCode(), 1);
    QCOMPARE(after, before);
    // The write did reach the file: the recorder could read it and tried.
    const QByteArray said = recorder->readAllStandardError();
    QVERIFY2(said.contains("in place"), said.constData());
}

// Qt's JSON objects take keys that differ only after a NUL character for one
// key; a rewrite could drop one of them, so the file is not rewritten.
void TestDeviceDescriptionFile::keysDifferingAfterNulLeaveFileUntouched()
{
    writeSpec(QByteArray("{\"z\0d\":null,\"z\0\0\0\":null}", 24));
    const FileState before = FileState::of(m_path);
    QCOMPARE(QJsonDocument::fromJson(before.content).object().size(), 2);

    QVERIFY(!DeviceDescriptionFile(m_path).record(QStringLiteral("backResolutions"), 12));

    QVERIFY(FileState::of(m_path) == before);
}

namespace {

// Reads the file as fast as it can on a thread of its own until stopped, and
// counts what it saw. A standard thread: joining it orders the counts before
// the test reads them in a way ThreadSanitizer can see, which Qt's own
// (uninstrumented) thread waiting is not.
class PollingReader
{
public:
    explicit PollingReader(const QString &path)
        : m_path(path)
        , m_thread([this] { run(); })
    {
    }

    void stopAndJoin()
    {
        m_stop.store(true);
        m_thread.join();
    }

    int reads = 0;
    int partial = 0;
    QSet<QByteArray> distinct;
    QByteArray firstBad;

private:
    void run()
    {
        while (!m_stop.load()) {
            QFile file(m_path);
            QByteArray content;
            if (file.open(QIODevice::ReadOnly))
                content = file.readAll();
            ++reads;
            QJsonParseError error;
            const QJsonDocument document = QJsonDocument::fromJson(content, &error);
            if (error.error != QJsonParseError::NoError || document.object().isEmpty()) {
                if (!partial++)
                    firstBad = content.left(200);
            } else if (distinct.size() < 1000) {
                distinct.insert(content);
            }
            // Leaves the writer its share of a small machine.
            std::this_thread::yield();
        }
    }

    QString m_path;
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

} // namespace

void TestDeviceDescriptionFile::readerNeverSeesPartialDocument()
{
    // A large entry beside the device makes every write long enough for a
    // reader to catch a file that is being rewritten in place.
    QJsonObject document{{QStringLiteral("phone"), QJsonObject()},
                         {QStringLiteral("zz-notes"), QString(16 * 1024, QLatin1Char('x'))}};
    writeSpec(QJsonDocument(document).toJson());

    PollingReader reader(m_path);
    const DeviceDescriptionFile file(m_path);
    int written = 0;
    for (int i = 0; i < 1000; ++i)
        written += file.record(i % 2 ? QStringLiteral("frontResolutions") : QStringLiteral("backResolutions"), i);
    reader.stopAndJoin();

    QCOMPARE(written, 1000);
    QVERIFY2(reader.partial == 0, qPrintable(QStringLiteral("%1 of %2 reads were not a whole document, first: %3")
                                                 .arg(reader.partial)
                                                 .arg(reader.reads)
                                                 .arg(QString::fromUtf8(reader.firstBad))));
    // The reader really ran alongside the writer.
    QVERIFY2(reader.distinct.size() >= 2, qPrintable(QString::number(reader.reads)));
    const QJsonObject camera = readSpec().value(QLatin1String("phone")).toObject().value(QLatin1String("camera")).toObject();
    QCOMPARE(camera.value(QLatin1String("backResolutions")).toArray(), QJsonArray{998});
    QCOMPARE(camera.value(QLatin1String("frontResolutions")).toArray(), QJsonArray{999});
}

// "tst_devicedescriptionfile --record PATH KEY VALUE" records once and exits with 0
// when the file was rewritten, 1 otherwise: the tests run it as another user.
int main(int argc, char *argv[])
{
    if (argc == 5 && qstrcmp(argv[1], "--record") == 0) {
        QCoreApplication app(argc, argv);
        // As under PLINTHD_DEBUG: the tests read what the recorder says.
        QLoggingCategory::setFilterRules(QStringLiteral("plinthd.debug=true"));
        const bool written = DeviceDescriptionFile(QString::fromLocal8Bit(argv[2]))
                                 .record(QString::fromLocal8Bit(argv[3]), QByteArray(argv[4]).toDouble());
        return written ? 0 : 1;
    }
    QCoreApplication app(argc, argv);
    TestDeviceDescriptionFile test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_devicedescriptionfile.moc"
