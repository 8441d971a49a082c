// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_KEPTFOLDER_H
#define PLINTHD_KEPTFOLDER_H

#include <QtGlobal>

#include <memory>
#include <string>
#include <utility>
#include <vector>

struct KeptFolder;

// What one listing of a folder found, for every owner at once, so that one
// listing serves the walks of every user. Files are summed, not kept: a
// folder of a thousand files costs a few words here.
struct KeptListing
{
    // A symbolic link counts its own length for the owner of what it points
    // to, which may change anywhere, unseen: its owner is looked up again at
    // every query.
    struct Link
    {
        std::string name;
        quint64 size = 0;
    };

    // Apparent sizes of the plain entries (files, devices, sockets, ...) by
    // owner; a handful of owners at most, so a list.
    std::vector<std::pair<uint, quint64>> bytesByOwner;
    std::vector<Link> links;
    // Entries with more than one name: a write through a name in a folder
    // nobody watches is reported there only, so these are looked at again at
    // every query.
    std::vector<std::string> sharedFiles;
    std::vector<std::unique_ptr<KeptFolder>> subfolders;

    void addBytes(uint owner, quint64 bytes)
    {
        for (auto &entry : bytesByOwner) {
            if (entry.first == owner) {
                entry.second += bytes;
                return;
            }
        }
        bytesByOwner.emplace_back(owner, bytes);
    }

    quint64 bytesOf(uint owner) const
    {
        for (const auto &entry : bytesByOwner) {
            if (entry.first == owner)
                return entry.second;
        }
        return 0;
    }
};

// One folder of a kept tree, as the listing of its parent saw it, and, once
// the walk of an owner has entered it, its own listing and watch.
struct KeptFolder
{
    enum class State : quint8 {
        Unlisted,      // only seen in its parent's listing: no walk has entered it yet
        Listed,        // listed and watched: `listing` holds while no notice came
        WalkedEachTime // could not be watched: walked afresh whenever a walk enters it
    };

    KeptFolder *parent = nullptr;
    std::string name;
    quint64 device = 0;
    quint64 inode = 0;
    uint owner = 0;
    int watch = -1;
    State state = State::Unlisted;
    // Listed: a notice came for it since its listing began, so it is listed
    // again before it is counted.
    bool changed = false;
    // WalkedEachTime: it was refused for want of room among the watches, and
    // may be watched once there is room again.
    bool waitsForRoom = false;
    // Its watch ended, or it moved or went: the next listing of its parent
    // drops it, even if a new folder there has the same inode number.
    bool lost = false;
    std::unique_ptr<KeptListing> listing;
};

#endif // PLINTHD_KEPTFOLDER_H
