#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "bluetooth_le_scanner.h"
#include "lan_announcement.h"
#include "listener_thread.h"
#include "shared_callback.h"
#include "zelmor_scanner.h"

/// The device finder of this machine. LAN source: a UDP listener on port 7207
/// (all local addresses) that turns every valid announcement into a sighting
/// with the sender's address, so that the device can be reached with
/// connectLan. It only listens: nothing is sent to ask devices to announce.
///
/// Bluetooth LE source: BlueZ discovery filtered on the devices' service UUID.
/// An advertisement is a sighting when its manufacturer data holds an entry
/// under kZelmorCompanyId that decodes (ble_manufacturer_data.h). The
/// Bluetooth LE models have no serial number of their own on the air, so a
/// sighting's serial is its 48-bit Bluetooth address.
///
/// Threads: each source calls the callback on a thread of its own, and the
/// callback may call every method here (see ListenerThread for the rules):
/// a stop there ends that source once the callback returns, a start after it
/// keeps or restarts it, and destroying the scanner there lets both threads
/// end by themselves (the LAN socket is closed, and the port free again, only
/// then). Only the socket failing ends the LAN listener by itself; the next
/// startWifiScan() then opens a new socket. Starting and stopping a source
/// from two threads at once is safe; which call wins is not said.
class ZelmorScannerImpl : public ZelmorScanner {
public:
    static constexpr int kEpollWaitMs = 50;
    static constexpr size_t kMaxDatagramSize = 512;

    /// `port` is the announcement port; tests may choose another.
    explicit ZelmorScannerImpl(uint16_t port = kLanAnnouncementPort);
    ~ZelmorScannerImpl() override;

    /// Binds the socket on this thread, so that a port already in use is
    /// reported here, then starts the listening thread. True when listening.
    bool startWifiScan() override;
    void stopWifiScan() override;
    /// Initialises the scanner, sets the filters and starts discovery: the
    /// source is running when this returns true.
    bool initBle() override;
    void stopBle() override;
    void setAdvertisementCallback(AdvertisementCallback callback) override;
    std::string lastError() const override;

private:
    void setError(std::string text);

    uint16_t const port_;
    SharedCallback<void(Advertisement const&)> callback_;
    std::mutex bleMutex_;  // guards ble_, which is swapped under it and stopped outside it
    std::unique_ptr<BluetoothLEScanner> ble_;
    mutable std::mutex errorMutex_;
    std::string error_;
    ListenerThread lan_{"zelmor-lan"};
};
