// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_UMOCKDEVTESTBED_H
#define PLINTHD_UMOCKDEVTESTBED_H

#include <string>
#include <vector>

struct _UMockdevTestbed;

// A umockdev testbed for Qt tests: recorded device descriptions come and go,
// and udev events reach the udev monitors of this process. The process must
// run with umockdev's preload library (the test is registered that way). The
// header stays free of GLib, whose names clash with Qt's keywords.
class UmockdevTestbed
{
public:
    UmockdevTestbed();
    ~UmockdevTestbed();
    UmockdevTestbed(const UmockdevTestbed &) = delete;
    UmockdevTestbed &operator=(const UmockdevTestbed &) = delete;

    // Whether umockdev's preload library is loaded into this process.
    static bool preloaded();

    // The internal eMMC of emmc.umockdev: a device that stays, whose events
    // make the partition manager rescan.
    static constexpr const char *EmmcDisk =
            "/sys/devices/platform/soc/fe310000.mmc/mmc_host/mmc0/mmc0:0001/block/mmcblk0";

    // A description from tests/data/storages, by base name ("sdcard").
    // umockdev announces each device it adds with an "add" event.
    bool add(const std::string &name);
    bool plug(const std::string &name) { return add(name); }
    // As udev sees a drive arrive: the disk is announced while its partitions
    // are not probed yet (no file system type, label or entry name, and not
    // marked initialized). finishProbe() then gives each partition what udev
    // found and announces it, as udev does once it is done with it.
    bool plugUnprobed(const std::string &name);
    void finishProbe(const std::string &name);
    // Announces the block devices gone, removes the drive, then sends a
    // "change" of the given device that stays so that a rescan follows.
    void unplug(const std::string &name, const std::string &stayingDevice);
    void uevent(const std::string &syspath, const char *action);
    // Changes what udev says of a device, without announcing it.
    void setProperty(const std::string &syspath, const char *key, const char *value);

    static std::vector<std::string> devicePaths(const std::string &name);
    static std::vector<std::string> blockDevicePaths(const std::string &name);

private:
    _UMockdevTestbed *m_testbed;
};

#endif // PLINTHD_UMOCKDEVTESTBED_H
