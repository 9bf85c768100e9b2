#pragma once

#include <cstdint>

/// The host's Bluetooth stack, as the GATT client needs it: the default
/// adapter, an L2CAP socket on the Attribute Protocol's fixed channel, and the
/// link's signal strength. The client never opens sockets itself, so that a
/// test can hand it one end of a socketpair(AF_UNIX, SOCK_SEQPACKET) instead,
/// which keeps message boundaries exactly as an ATT socket does.
///
/// Every call returns a result or a descriptor; failures leave errno set.
class BluetoothHost {
public:
    virtual ~BluetoothHost() = default;

    /// The default adapter's HCI descriptor, or -1.
    virtual int openAdapter() = 0;
    virtual void closeAdapter(int adapter) = 0;

    /// A non-blocking sequential-packet socket on the ATT channel, bound to any
    /// local address, its L2CAP options readable. -1 on failure.
    virtual int openAttSocket() = 0;
    /// Connects it to the peer (address as BluetoothLE keeps it; LE public or
    /// LE random): 0 when connected at once, else the errno, EINPROGRESS
    /// while the connection is under way.
    virtual int connectAttSocket(int socket, uint64_t address, bool publicAddress) = 0;
    /// Once the socket reports the connection: SO_ERROR is 0 and the
    /// connection information is readable. Gives the HCI connection handle.
    virtual bool connectionHandle(int socket, uint16_t& handle) = 0;
    /// The link's RSSI in dBm from the adapter, waiting at most 1000 ms.
    virtual bool readRssi(int adapter, uint16_t handle, int8_t& rssi) = 0;
};

/// The kernel's Bluetooth stack through libbluetooth: hci_get_route and
/// hci_open_dev for the adapter, AF_BLUETOOTH L2CAP sockets on channel 4,
/// hci_read_rssi. Stateless; one instance serves every client.
BluetoothHost& kernelBluetoothHost();
