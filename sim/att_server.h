#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <utility>
#include <vector>

#include "ble_uuid.h"

namespace sim {

/// A GATT server on one connected sequential-packet socket (an ATT channel,
/// or one end of a socketpair, which keeps message boundaries the same way):
/// a table of primary services, characteristics and descriptors, the
/// Attribute Protocol requests a client uses to discover, read, write and
/// configure them, and notifications.
///
/// The server owns no thread: whoever drives the link waits for input on
/// socket() and calls receive(), which answers on the caller's thread. The
/// table is built before the first receive() and fixed from then on; notify(),
/// notificationsEnabled(), mtu(), closed() and close() may then be called from
/// any thread. Read and write functions run on the receiving thread with no
/// lock held. The server owns the descriptor and closes it when destroyed.
///
/// Handles are contiguous from 1, in the order things were added.
class AttServer {
public:
    /// The MTU of every link until the client exchanges it.
    static constexpr uint16_t kMinimumMtu = 23;
    static constexpr uint16_t kDefaultMtu = 247;

    // Characteristic property bits.
    static constexpr uint8_t kPropertyRead = 0x02;
    static constexpr uint8_t kPropertyWriteWithoutResponse = 0x04;
    static constexpr uint8_t kPropertyWrite = 0x08;
    static constexpr uint8_t kPropertyNotify = 0x10;
    static constexpr uint8_t kPropertyIndicate = 0x20;

    /// The current value of a readable characteristic.
    using ReadFunction = std::function<std::vector<uint8_t>()>;
    /// A value the client wrote, by request or by command.
    using WriteFunction = std::function<void(uint8_t const* data, size_t length)>;

    /// `serverMtu` is what the server offers when the client exchanges MTUs,
    /// as given: a value below 23 plays a device that offers one. The link
    /// itself never goes below 23.
    explicit AttServer(int socket, uint16_t serverMtu = kDefaultMtu);
    ~AttServer();
    AttServer(AttServer const&) = delete;
    AttServer& operator=(AttServer const&) = delete;

    /// Starts a primary service; what is added next belongs to it.
    void addService(BleUUID const& uuid);
    /// Adds a characteristic to the last service: its declaration, its value
    /// and, when it can notify or indicate, its configuration descriptor (both
    /// off). Its value is readable with kPropertyRead (empty without `read`),
    /// writable by request with kPropertyWrite and by command with
    /// kPropertyWriteWithoutResponse. Returns the value handle.
    uint16_t addCharacteristic(BleUUID const& uuid, uint8_t properties, ReadFunction read = {},
                               WriteFunction write = {});
    /// A read-only descriptor of the last characteristic; returns its handle.
    uint16_t addDescriptor(BleUUID const& uuid, std::vector<uint8_t> value);

    int socket() const { return socket_; }
    /// Takes one PDU from the socket, if one is waiting, and answers it. False
    /// once the link is closed: the client left, the socket failed, or close().
    bool receive();

    /// Sends one Handle Value Notification of a characteristic value of at
    /// most MTU - 3 bytes, waiting while the socket is full. False when the
    /// client has not enabled notifications, the value is longer, or the link
    /// is closed.
    bool notify(uint16_t valueHandle, uint8_t const* data, size_t length);
    bool notificationsEnabled(uint16_t valueHandle) const;
    /// The handle of a characteristic's configuration descriptor; 0 when none.
    uint16_t configurationHandle(uint16_t valueHandle) const;
    /// 23 until the client exchanges MTUs, then the smaller offer, at least 23.
    uint16_t mtu() const { return mtu_.load(); }

    bool closed() const { return closed_.load(); }
    /// Shuts the link down in both directions, which wakes a thread waiting on
    /// the socket; the descriptor stays open until destruction. Idempotent.
    void close();

private:
    using Pdu = std::vector<uint8_t>;
    struct Route;
    static Route const kRoutes[];

    struct Attribute {
        Attribute(BleUUID type_, uint8_t access_, std::vector<uint8_t> value_ = {})
            : type(type_), access(access_), value(std::move(value_)) {}

        BleUUID type;
        uint8_t access = 0;
        std::vector<uint8_t> value;
        ReadFunction read;
        WriteFunction write;
        // The characteristic's properties, on its value and its configuration descriptor.
        uint8_t properties = 0;
        // On a characteristic value: the handle of its configuration descriptor.
        uint16_t configuration = 0;
        bool isConfiguration = false;
        // On a service declaration: the last handle of the service.
        uint16_t groupEnd = 0;
    };

    uint16_t append(Attribute attribute);
    Attribute const* find(uint16_t handle) const;
    std::vector<uint8_t> valueOf(uint16_t handle, Attribute const& attribute) const;
    uint16_t configurationValue(uint16_t configuration) const;

    Pdu answer(uint8_t const* pdu, size_t length);
    Pdu exchangeMtu(uint8_t const* pdu, size_t length);
    Pdu findInformation(uint8_t const* pdu, size_t length);
    Pdu readByType(uint8_t const* pdu, size_t length);
    Pdu read(uint8_t const* pdu, size_t length);
    Pdu readBlob(uint8_t const* pdu, size_t length);
    Pdu readByGroupType(uint8_t const* pdu, size_t length);
    Pdu writeRequest(uint8_t const* pdu, size_t length);
    Pdu writeCommand(uint8_t const* pdu, size_t length);
    Pdu confirmation(uint8_t const* pdu, size_t length);
    Pdu readFrom(uint8_t request, uint8_t responseOpcode, uint16_t handle, size_t offset);
    // False, with the error answer, for a range that starts at 0 or ends before it starts.
    bool checkRange(uint8_t opcode, uint16_t start, uint16_t end, Pdu& error) const;
    bool send(Pdu const& pdu);

    int const socket_;
    uint16_t const serverMtu_;
    std::atomic<uint16_t> mtu_{kMinimumMtu};
    std::atomic<bool> closed_{false};
    std::vector<Attribute> attributes_;
    uint16_t lastService_ = 0;
    std::vector<uint8_t> buffer_;

    mutable std::mutex mutex_;
    std::map<uint16_t, uint16_t> configurations_;  // descriptor handle -> value
};

}  // namespace sim
