#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>

#include "bluetooth_host.h"

namespace sim {

/// A Bluetooth host without a radio: every ATT connection is one end of a
/// socketpair(AF_UNIX, SOCK_SEQPACKET), which keeps message boundaries as an
/// L2CAP socket does; the other end goes to a peer (a simulated device's ATT
/// server, or a test's scripted exchange). Thread-safe.
class SocketPairBluetoothHost : public BluetoothHost {
public:
    /// Takes over the peer's end of a new connection to `address`; called on
    /// the connecting thread. The peer owns and closes the descriptor.
    using PeerFactory = std::function<void(int peerSocket, uint64_t address, bool publicAddress)>;

    explicit SocketPairBluetoothHost(PeerFactory peerFactory);

    /// A handle while the host has an adapter (see setAdapterPresent).
    int openAdapter() override;
    void closeAdapter(int adapter) override;
    int openAttSocket() override;
    /// Hands the peer end to the factory, then reports EINPROGRESS: the link
    /// comes up through the socket's output readiness, as over the air.
    int connectAttSocket(int socket, uint64_t address, bool publicAddress) override;
    /// Waits while connections are held (see holdConnections).
    bool connectionHandle(int socket, uint16_t& handle) override;
    bool readRssi(int adapter, uint16_t handle, int8_t& rssi) override;

    /// Without an adapter, openAdapter fails with ENODEV.
    void setAdapterPresent(bool present);
    /// Keeps new links in the connecting state until released.
    void holdConnections(bool hold);
    /// True while a connecting link waits in connectionHandle.
    bool connectionHeld() const;
    /// The next RSSI reads; a failing read makes readRssi return false.
    void setRssi(int8_t rssi, bool readSucceeds = true);

    static constexpr uint16_t kConnectionHandle = 0x0040;

private:
    PeerFactory const peerFactory_;
    mutable std::mutex mutex_;
    std::condition_variable released_;
    std::map<int, int> peerEnds_;  // client end -> peer end, until connect
    bool adapterPresent_ = true;
    bool hold_ = false;
    int waiting_ = 0;
    int8_t rssi_ = -62;
    bool rssiSucceeds_ = true;
};

}  // namespace sim
