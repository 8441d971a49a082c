// SPDX-License-Identifier: BSD-3-Clause
#include "umockdevtestbed.h"

#include <umockdev.h>

#include <cstdlib>
#include <fstream>

namespace {

std::string descriptionFile(const std::string &name)
{
    const char *source = std::getenv("PLINTHD_SOURCE_DIR");
    return std::string(source ? source : ".") + "/tests/data/storages/" + name + ".umockdev";
}

} // namespace

UmockdevTestbed::UmockdevTestbed()
    : m_testbed(umockdev_testbed_new())
{
}

UmockdevTestbed::~UmockdevTestbed()
{
    g_object_unref(m_testbed);
}

bool UmockdevTestbed::preloaded()
{
    const char *preload = std::getenv("LD_PRELOAD");
    return preload && std::string(preload).find("libumockdev-preload") != std::string::npos;
}

bool UmockdevTestbed::add(const std::string &name)
{
    GError *error = nullptr;
    const bool ok = umockdev_testbed_add_from_file(m_testbed, descriptionFile(name).c_str(), &error);
    if (error)
        g_error_free(error);
    return ok;
}

namespace {

// What udev's probe adds to a partition: the file system, the partition
// table entry, and the time it finished.
bool isProbeResult(const std::string &line)
{
    return line.compare(0, 9, "E: ID_FS_") == 0 || line.compare(0, 17, "E: ID_PART_ENTRY_") == 0
            || line.compare(0, 19, "E: USEC_INITIALIZED") == 0;
}

bool startsPartition(const std::string &line)
{
    // The partitions are the block devices below another block device.
    const std::string::size_type block = line.find("/block/");
    return line.compare(0, 3, "P: ") == 0 && block != std::string::npos
            && line.find('/', block + 7) != std::string::npos;
}

} // namespace

bool UmockdevTestbed::plugUnprobed(const std::string &name)
{
    std::ifstream in(descriptionFile(name));
    std::string line;
    std::string description;
    bool inPartition = false;
    while (std::getline(in, line)) {
        if (line.compare(0, 3, "P: ") == 0)
            inPartition = startsPartition(line);
        if (inPartition && isProbeResult(line))
            continue;
        description += line + '\n';
    }
    GError *error = nullptr;
    const bool ok = umockdev_testbed_add_from_string(m_testbed, description.c_str(), &error);
    if (error)
        g_error_free(error);
    return ok;
}

void UmockdevTestbed::finishProbe(const std::string &name)
{
    std::ifstream in(descriptionFile(name));
    std::string line;
    std::string partition;
    while (std::getline(in, line)) {
        if (line.compare(0, 3, "P: ") == 0) {
            if (!partition.empty())
                uevent(partition, "add");
            partition = startsPartition(line) ? "/sys" + line.substr(3) : std::string();
        } else if (!partition.empty() && isProbeResult(line)) {
            const std::string::size_type equals = line.find('=');
            const std::string key = line.substr(3, equals - 3);
            umockdev_testbed_set_property(m_testbed, partition.c_str(), key.c_str(),
                                          line.substr(equals + 1).c_str());
        }
    }
    if (!partition.empty())
        uevent(partition, "add");
}

void UmockdevTestbed::unplug(const std::string &name, const std::string &stayingDevice)
{
    const std::vector<std::string> blocks = blockDevicePaths(name);
    for (auto it = blocks.rbegin(); it != blocks.rend(); ++it)
        uevent(*it, "remove");
    umockdev_testbed_remove_device(m_testbed, devicePaths(name).front().c_str());
    uevent(stayingDevice, "change");
}

void UmockdevTestbed::uevent(const std::string &syspath, const char *action)
{
    umockdev_testbed_uevent(m_testbed, syspath.c_str(), action);
}

void UmockdevTestbed::setProperty(const std::string &syspath, const char *key, const char *value)
{
    umockdev_testbed_set_property(m_testbed, syspath.c_str(), key, value);
}

std::vector<std::string> UmockdevTestbed::devicePaths(const std::string &name)
{
    std::vector<std::string> paths;
    std::ifstream in(descriptionFile(name));
    std::string line;
    while (std::getline(in, line)) {
        if (line.compare(0, 3, "P: ") == 0)
            paths.push_back("/sys" + line.substr(3));
    }
    return paths;
}

std::vector<std::string> UmockdevTestbed::blockDevicePaths(const std::string &name)
{
    std::vector<std::string> blocks;
    for (const std::string &path : devicePaths(name)) {
        if (path.find("/block/") != std::string::npos)
            blocks.push_back(path);
    }
    return blocks;
}
