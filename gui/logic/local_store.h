#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <utility>
#include <vector>

#include "log_record.h"
#include "zelmor.h"

/// What the application keeps on this machine, under one data directory: the
/// remote devices (paired devices reached through the hub), one line each as a
/// device link in "cloud_devices.cfg", and per device a folder for copies of
/// its data log, named by its serial in lower-case hex. The records of the log
/// on display are held here too. Used from the GUI thread only.
class LocalStore {
public:
    /// Creates `dataDir` when it is missing (its parent must exist; any
    /// failure is left for the file operations to meet) and loads the remote
    /// devices.
    explicit LocalStore(std::filesystem::path dataDir);

    std::vector<Zelmor::DeviceIdentifier> const& remoteDevices() const { return remoteDevices_; }
    std::vector<LogRecord>& logRecords() { return logRecords_; }
    /// Hands the loaded records over, e.g. to the chart that shows them, and
    /// keeps none.
    std::vector<LogRecord> takeLogRecords() { return std::exchange(logRecords_, {}); }
    std::filesystem::path const& dataDir() const { return dataDir_; }
    /// The selected device's log folder; empty while none is selected.
    std::filesystem::path const& deviceLogDir() const { return deviceLogDir_; }

    /// Called after every change of the remote devices through this store.
    void setRemoteDevicesObserver(std::function<void()> observer) { remoteDevicesChanged_ = std::move(observer); }

    /// Replaces the remote devices with the valid links in the file, in file
    /// order, duplicates kept. Lines that are not a valid link are skipped; a
    /// missing or unreadable file gives an empty list.
    void loadRemoteDevices();
    /// Writes the file anew so that it holds exactly the list. The file is
    /// private to the user (mode 0600: it holds the devices' keys) and is
    /// replaced in one step, so it is never seen half-written. False when it
    /// cannot be written; the previous file then stays as it was.
    bool saveRemoteDevices() const;
    /// Replaces the first entry equal to `id` (every field, addresses too) or
    /// appends it, saves and tells the observer. The result is the save's.
    bool addRemoteDevice(Zelmor::DeviceIdentifier const& id);
    /// Removes the entry at `index`, saves and tells the observer. False for an
    /// index past the end (nothing changes) or when the save fails.
    bool removeRemoteDevice(size_t index);

    /// Selects the device whose log copies are read and written, creating its
    /// folder when missing.
    void setCurrentDevice(uint64_t serial);
    void clearCurrentDevice() { deviceLogDir_.clear(); }
    /// Where the copy of the selected device's log file `fileId` is kept,
    /// e.g. ".../ab/r0000001f.log".
    std::filesystem::path logFilePath(uint32_t fileId) const;
    /// Forgets the loaded records and deletes the selected device's log folder
    /// with everything in it; the next sync makes it again. Nothing happens on
    /// disk while no device is selected.
    void clearLocalLog();
    /// Replaces the log records with the selected device's local copy of its
    /// log, in time order; none while no device is selected. The stored
    /// record layout depends on the model, so `hardwareRevision` is the
    /// device information's hardware revision byte. False, with no records,
    /// when the folder or one of its log files cannot be read.
    bool loadLocalLog(uint8_t hardwareRevision);

private:
    void remoteDevicesChanged() const;

    std::vector<Zelmor::DeviceIdentifier> remoteDevices_;
    std::vector<LogRecord> logRecords_;
    std::function<void()> remoteDevicesChanged_;
    std::filesystem::path dataDir_;
    std::filesystem::path deviceLogDir_;
};
