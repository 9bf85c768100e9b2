#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <string>

/// Finds devices nearby and hands every sighting to one callback. Sightings come
/// from LAN announcements (UDP) and, on machines with an adapter, from Bluetooth
/// LE advertisements; each source calls the callback on its own thread.
class ZelmorScanner {
public:
    /// One sighting: who the device is, where it was seen, and the readings it
    /// announced. Fields a source does not carry keep their defaults.
    struct Advertisement {
        enum class Source : uint8_t { Lan, Bluetooth };
        Source source = Source::Lan;

        uint8_t hardwareRevision = 0;
        uint16_t firmwareVersion = 0;
        uint64_t serial = 0;
        std::string name;

        /// Status word, bits as in the live readings (bit 2: second voltage on).
        uint32_t status = 0;
        uint32_t time = 0;  // device clock, seconds since 1970-01-01 UTC
        float voltage1 = 0;
        float voltage2 = 0;  // NaN when the device has no second voltage
        float current = 0;
        float power = 0;
        float temperature = 0;
        int64_t coulombMeter = 0;  // mAh
        float energyWh = 0;
        uint8_t powerStatus = 0;
        uint8_t stateOfCharge = 255;  // percent; 255 = not available, above 100 = unknown
        uint16_t runtime = 65535;     // minutes; 65521 and above = not available
        int16_t rssi = -32768;        // dBm; -32768 = not available

        /// LAN: the sender of the announcement, network byte order, for connectLan.
        uint32_t ipAddress = 0;
        /// Bluetooth LE: the device address, least significant byte first.
        uint64_t bluetoothAddress = 0;
        bool randomAddress = false;
    };

    using AdvertisementCallback = std::function<void(Advertisement const&)>;

    virtual ~ZelmorScanner() = default;

    /// Starts listening for LAN announcements; true at once while listening,
    /// and a listener that ended by itself is started anew. False when the
    /// listener cannot be set up (lastError() tells why); sightings then come
    /// from Bluetooth only.
    virtual bool startWifiScan() = 0;
    /// Stops the LAN listener and waits for its thread; safe when not started.
    /// From the callback it does not wait: the listener ends once the callback
    /// returns.
    virtual void stopWifiScan() = 0;
    /// Starts the Bluetooth LE source: scanning through the system's Bluetooth
    /// daemon for the devices' service, each advertisement that carries the
    /// devices' manufacturer data becoming a sighting. False when there is no
    /// usable adapter or the daemon refuses (lastError() tells why).
    virtual bool initBle() = 0;
    /// Stops Bluetooth LE scanning and waits for its thread; safe when not
    /// started. From the callback the thread ends once the callback returns.
    virtual void stopBle() = 0;
    /// An empty callback drops sightings. May be replaced while scanning.
    virtual void setAdvertisementCallback(AdvertisementCallback callback) = 0;
    /// The system's message for the last failure to start a source.
    virtual std::string lastError() const = 0;
};
