// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTH_MAPKEYS_H
#define PLINTH_MAPKEYS_H

// The keys of the maps (a{sv}) in the daemon's answers and signals, and the
// values of the one key whose values are a fixed set. They belong to the
// interfaces org.norvu.plinth.SIM and org.norvu.plinth.Storages, and are
// spelled here alone: the daemon writes its maps with them, and the client
// library, its QML module and plinthctl read with them. The client library
// installs this file as <plinth/mapkeys.h> for applications that read the
// maps themselves. The interface reference (sim.md and storages.md) says what
// each value means, its D-Bus type and its unit.
//
// Plain character arrays: usable before any code runs and from any thread,
// and they tie the header to nothing but the C++ compiler.
namespace Plinth {
namespace Keys {

// A SIM card (getSimCardsInfo, simCardsEnabledChanged and the other SIM
// signals).
constexpr char SimName[] = "simName";
constexpr char OperatorName[] = "operatorName";
constexpr char Enabled[] = "enabled";
constexpr char PreferredDataTransfer[] = "preferredDataTransfer";
constexpr char PreferredVoiceCall[] = "preferredVoiceCall";

// Space: every storage summary, the external storage and each partition of a
// drive.
constexpr char BytesTotal[] = "bytesTotal";
constexpr char BytesUsed[] = "bytesUsed";
constexpr char BytesAvailable[] = "bytesAvailable";

// A storage summary (internal memory, the user partition, the system).
constexpr char DeviceLabel[] = "deviceLabel";
constexpr char FilesystemType[] = "filesystemType";

// What fills the user partition, for the current user: "bytesUsed" followed
// by the name of the folder in the user's home, then the rest.
constexpr char BytesUsedPictures[] = "bytesUsedPictures";
constexpr char BytesUsedVideos[] = "bytesUsedVideos";
constexpr char BytesUsedMusic[] = "bytesUsedMusic";
constexpr char BytesUsedDocuments[] = "bytesUsedDocuments";
constexpr char BytesUsedDownloads[] = "bytesUsedDownloads";
constexpr char BytesUsedOther[] = "bytesUsedOther";
constexpr char BytesUsedOtherUsers[] = "bytesUsedOtherUsers";

// What fills the system (BytesUsedOther too).
constexpr char BytesUsedApps[] = "bytesUsedApps";
constexpr char BytesUsedDebugInfo[] = "bytesUsedDebugInfo";
constexpr char BytesUsedSDK[] = "bytesUsedSDK";
constexpr char BytesUsedCoreDumps[] = "bytesUsedCoreDumps";
constexpr char BytesUsedSystemLogs[] = "bytesUsedSystemLogs";

// The external storage as one (getExternalStorageInfo, externalStorageChanged;
// DeviceLabel and the space too).
constexpr char Mounted[] = "mounted";
constexpr char CountMountedPartitions[] = "countMountedPartitions";

// An external drive (getExternalStorageDrivesInfo, externalDriveChanged).
constexpr char DriveName[] = "driveName";
constexpr char DriveType[] = "driveType";
constexpr char PartitionsInfo[] = "partitionsInfo";

// A partition of an external drive (DriveName and the space too).
constexpr char PartitionName[] = "partitionName";
constexpr char MountPoint[] = "mountPoint";
constexpr char PartitionLabel[] = "partitionLabel";

// One user's quota (getUsersQuotaInfo).
constexpr char QuotaIsSet[] = "quotaIsSet";
constexpr char QuotaLimit[] = "quotaLimit";
constexpr char QuotaAvailable[] = "quotaAvailable";

} // namespace Keys

// The values of Keys::DriveType: how a drive is connected.
namespace DriveTypes {
constexpr char SD[] = "SD";
constexpr char USB[] = "USB";
constexpr char IEEE1394[] = "IEEE1394";
constexpr char Unknown[] = "Unknown";
} // namespace DriveTypes
} // namespace Plinth

#endif // PLINTH_MAPKEYS_H
