// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_STORAGEFIGURES_H
#define PLINTHD_STORAGEFIGURES_H

#include <mapkeys.h>

#include <QString>
#include <QVector>

#include <optional>

// The figures the storage queries compute, typed. They become the maps of the
// bus only in StorageMaps. (The external drives and the system categories are
// put in their maps where they are summed, by ExternalDrives and
// SystemStorageCategories.) Every key comes from mapkeys.h.

// The folders of a user's home that the breakdown measures, in the order of
// UserBreakdown::folderBytes: the folder's name, and the key of its figure.
struct UserFolder
{
    const char *name;
    const char *key;
};
constexpr UserFolder UserFolders[] = {
    {"Pictures", Plinth::Keys::BytesUsedPictures},
    {"Videos", Plinth::Keys::BytesUsedVideos},
    {"Music", Plinth::Keys::BytesUsedMusic},
    {"Documents", Plinth::Keys::BytesUsedDocuments},
    {"Downloads", Plinth::Keys::BytesUsedDownloads},
};

// Used, total and available bytes: of a set of partitions, or of one user's
// share of the user partition once the user's breakdown is made.
struct SpaceFigures
{
    quint64 total = 0;
    quint64 used = 0;
    quint64 available = 0;
};

// The partitions of one kind summed up: their space, the file-system type of
// the last one listed and the label the summary is published under.
struct PartitionSummary
{
    SpaceFigures space;
    QString filesystemType;
    QString label;
};

// One user's share of the user partition.
struct UserBreakdown
{
    // What "bytesUsedOtherUsers" says, if anything: only the owner of a device
    // with several users is told what the others hold; on a device with one
    // user the figure is a signed 0, unlike every other size, because clients
    // read it as such.
    enum class OtherUsers {
        NotTold,
        SoleUser,
        Held
    };

    QVector<quint64> folderBytes; // in the order of UserFolders
    quint64 otherBytes = 0;       // the user's files under /home outside those folders
    OtherUsers otherUsers = OtherUsers::NotTold;
    quint64 otherUsersBytes = 0;  // with OtherUsers::Held
    SpaceFigures space;           // the user's own, quota applied
    // The block soft limit as the kernel gave it, in 1 KiB blocks: 0 when no
    // limit is set, nothing when the kernel did not answer.
    std::optional<quint64> softLimitBlocks;
};

// One user's entry of the quota report.
struct UserQuota
{
    bool isSet = false;
    quint64 limit = 0;
    quint64 available = 0;
};

#endif // PLINTHD_STORAGEFIGURES_H
