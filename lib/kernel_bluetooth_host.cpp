#include <bluetooth/bluetooth.h>
#include <bluetooth/hci.h>
#include <bluetooth/hci_lib.h>
#include <bluetooth/l2cap.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "bluetooth_host.h"

namespace {

// The Attribute Protocol's fixed L2CAP channel.
constexpr uint16_t kAttChannel = 4;
constexpr int kRssiTimeoutMs = 1000;
// The kernel takes the L2CAP options at exactly this size.
static_assert(sizeof(l2cap_options) == 12);

bdaddr_t toBdaddr(uint64_t address) {
    bdaddr_t out{};
    for (size_t i = 0; i < sizeof out.b; ++i) out.b[i] = static_cast<uint8_t>(address >> (8 * i));
    return out;
}

sockaddr_l2 attAddress(bdaddr_t const& address, uint8_t addressType) {
    sockaddr_l2 out{};
    out.l2_family = AF_BLUETOOTH;
    out.l2_psm = 0;
    out.l2_bdaddr = address;
    out.l2_cid = htobs(kAttChannel);
    out.l2_bdaddr_type = addressType;
    return out;
}

// Closes without disturbing the errno of the failure that made us close.
int closeKeepingErrno(int fd) {
    int const error = errno;
    ::close(fd);
    errno = error;
    return -1;
}

class KernelBluetoothHost : public BluetoothHost {
public:
    int openAdapter() override {
        int const device = ::hci_get_route(nullptr);
        return device < 0 ? -1 : ::hci_open_dev(device);
    }

    void closeAdapter(int adapter) override { ::hci_close_dev(adapter); }

    int openAttSocket() override {
        int const fd = ::socket(AF_BLUETOOTH, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, BTPROTO_L2CAP);
        if (fd < 0) return -1;
        sockaddr_l2 const local = attAddress(bdaddr_t{}, BDADDR_LE_PUBLIC);
        if (::bind(fd, reinterpret_cast<sockaddr const*>(&local), sizeof local) != 0) return closeKeepingErrno(fd);
        // Fails on a socket the kernel did not set up as L2CAP.
        l2cap_options options{};
        socklen_t length = sizeof options;
        if (::getsockopt(fd, SOL_L2CAP, L2CAP_OPTIONS, &options, &length) != 0) return closeKeepingErrno(fd);
        return fd;
    }

    int connectAttSocket(int socket, uint64_t address, bool publicAddress) override {
        sockaddr_l2 const peer = attAddress(toBdaddr(address), publicAddress ? BDADDR_LE_PUBLIC : BDADDR_LE_RANDOM);
        return ::connect(socket, reinterpret_cast<sockaddr const*>(&peer), sizeof peer) == 0 ? 0 : errno;
    }

    bool connectionHandle(int socket, uint16_t& handle) override {
        int error = 0;
        socklen_t length = sizeof error;
        if (::getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &length) != 0) return false;
        if (error != 0) {
            errno = error;
            return false;
        }
        l2cap_conninfo info{};
        length = sizeof info;
        if (::getsockopt(socket, SOL_L2CAP, L2CAP_CONNINFO, &info, &length) != 0) return false;
        handle = info.hci_handle;
        return true;
    }

    bool readRssi(int adapter, uint16_t handle, int8_t& rssi) override {
        return ::hci_read_rssi(adapter, handle, &rssi, kRssiTimeoutMs) == 0;
    }
};

}  // namespace

BluetoothHost& kernelBluetoothHost() {
    static KernelBluetoothHost host;
    return host;
}
