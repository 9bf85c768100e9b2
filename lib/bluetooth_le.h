#pragma once

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "ble_uuid.h"
#include "bluetooth_host.h"

/// A small GATT client of our own on a raw ATT socket: it connects to one
/// peripheral, exchanges the MTU, discovers services, characteristics and
/// their configuration descriptors, reads, writes, enables notifications and
/// delivers them to per-characteristic handlers.
///
/// One connection thread does all socket reading and runs every callback and
/// handler. Operations may be called from any thread; one mutex guards the
/// request queue and is never held while a handler runs. Only the request at
/// the front of the queue is outstanding on the link.
class BluetoothLE {
public:
    /// Why the link ended, reported once per link through the disconnected callback.
    enum class DisconnectReason : uint8_t {
        ClosedLocally = 0,      // disconnect()
        LinkLost = 1,           // socket error, hang-up or read error after the link was up
        NeverConnected = 2,     // the connection attempt never completed
        ErrorResponse = 3,      // an ATT Error Response, or a malformed Exchange MTU Request
        ProtocolViolation = 4,  // an answer nobody waits for, of the wrong opcode, a short notification
        WriteFailed = 5,        // a socket write failed or stalled
        Reserved = 6,
    };

    enum class State : uint8_t { Disconnected = 0, Connecting = 1, Connected = 2 };

    /// Misuse of an operation; the message is one of the fixed texts below.
    class Exception : public std::runtime_error {
    public:
        using std::runtime_error::runtime_error;
    };
    static constexpr char const* kInvalidState = "command issued in invalid state";
    static constexpr char const* kInvalidValueHandle = "invalid characteristic value handle";
    static constexpr char const* kInvalidCccHandle = "invalid characteristic CCC handle";
    static constexpr char const* kNoNotify = "characteristic does not support notifications";
    static constexpr char const* kNoIndicate = "characteristic does not support indications";
    static constexpr char const* kNoRead = "characteristic does not support read";
    static constexpr char const* kNoWrite = "characteristic does not support write";
    static constexpr char const* kNoWriteWithoutResponse = "characteristic does not support write without response";
    static constexpr char const* kLengthOverMtu = "Length greater then MTU";
    static constexpr char const* kRssiError = "get RSSI error";

    // Characteristic property bits.
    static constexpr uint8_t kPropertyRead = 0x02;
    static constexpr uint8_t kPropertyWriteWithoutResponse = 0x04;
    static constexpr uint8_t kPropertyWrite = 0x08;
    static constexpr uint8_t kPropertyNotify = 0x10;
    static constexpr uint8_t kPropertyIndicate = 0x20;

    static constexpr uint16_t kDefaultMtu = 23;
    /// The largest MTU this client takes: answers to MTU exchanges are capped here.
    static constexpr uint16_t kMaxMtu = 512;
    static constexpr size_t kReceiveBufferSize = 512;
    static constexpr int kEpollWaitMs = 20;
    static constexpr int kWriteStallMs = 1000;

    using Handler = std::function<void(uint8_t const* data, size_t length)>;
    using Done = std::function<void()>;

    /// One characteristic of a discovered service. Its operations throw
    /// Exception on misuse; link failures end the link instead.
    struct Characteristic {
        uint16_t declarationHandle = 0;
        uint8_t properties = 0;
        uint16_t valueHandle = 0;
        BleUUID uuid;
        /// The client characteristic configuration descriptor; 0 when none.
        uint16_t cccHandle = 0;
        BluetoothLE* owner = nullptr;
        /// Receives notifications and indications, on the connection thread.
        Handler handler;

        /// Read Request, continued with Read Blob Requests while the answers
        /// fill the MTU; done gets the whole value.
        void read(Handler done);
        /// Write Request, or Prepare Write and Execute Write Requests for a
        /// value longer than MTU - 3.
        void write(std::vector<uint8_t> const& value, Done done);
        /// Write Command; throws kLengthOverMtu when length + 3 exceeds the MTU.
        void writeWithoutResponse(uint8_t const* data, size_t length);
        /// Writes the configuration descriptor: bit 0 notify, bit 1 indicate.
        void setNotify(bool notify, bool indicate, Done done);
    };

    struct Service {
        BleUUID uuid;
        uint16_t startHandle = 0;
        uint16_t endHandle = 0;
        std::vector<Characteristic> characteristics;
    };

    explicit BluetoothLE(BluetoothHost& host = kernelBluetoothHost());
    /// Stops the link (reason ClosedLocally) and closes the adapter handle.
    /// Not from the link's own callbacks or handlers.
    ~BluetoothLE();
    BluetoothLE(BluetoothLE const&) = delete;
    BluetoothLE& operator=(BluetoothLE const&) = delete;

    /// Opens the default adapter unless it is open; true when a handle is open.
    bool openAdapter();

    /// Starts the connection thread. address: the six bytes with the first
    /// field of the text form most significant. Throws kInvalidState while a
    /// link is connecting or connected. The thread of a link that ended is
    /// joined first; from that link's disconnected callback, which runs on
    /// it, it is left to return.
    void connect(uint64_t address, bool publicAddress);
    /// "C2:5A:4C:00:00:01": six fields of exactly two hexadecimal digits, one
    /// separator character each; parsing stops at the first bad field and the
    /// value parsed so far is used.
    void connect(std::string const& address, bool publicAddress);
    /// Ends the link (reason ClosedLocally) and waits for the connection
    /// thread, at most one 20 ms wait; from the connection thread itself it
    /// does not wait. When not running it only waits for a link that is
    /// ending by itself.
    void disconnect();

    State state() const { return state_.load(); }
    uint16_t mtu() const { return mtu_.load(); }
    /// Signal strength of the link; throws kInvalidState unless connected,
    /// kRssiError when the adapter query fails.
    int8_t getRssi();

    /// Queues an Exchange MTU Request; done runs when the answer set the MTU
    /// to the device's value kept within 23 and 512, whatever was asked.
    void exchangeMtu(unsigned mtu, Done done);
    /// Discovers services, characteristics and configuration descriptors and
    /// joins them into services(); then done.
    void discoverServices(Done done);
    /// The service list of the last discovery. Read it on the connection
    /// thread (in done or a handler), or after the link ended.
    std::vector<Service>& services() { return services_; }

    void setConnectedCallback(std::function<void()> callback);
    void setDisconnectedCallback(std::function<void(DisconnectReason)> callback);

private:
    /// One queued ATT request and what to do with its answers.
    struct Request {
        std::vector<uint8_t> pdu;
        bool sent = false;
        std::function<void(uint8_t const*, size_t)> onData;  // success with data
        Done onDone;                                         // success without data
        std::function<void(uint8_t const*, size_t)> onPage;  // a discovery answer, its entries checked
        Done onComplete;                                     // the whole exchange is done
    };

    // The connection thread (bluetooth_le.cpp).
    void run(uint64_t link);
    bool startConnecting(int socket);
    bool becomeConnected(int socket);
    void serve(int socket, int epoll);
    void handleEvent(int socket, uint32_t events);
    void receive(int socket);
    void closeLink(int socket, int epoll);
    void finish(uint64_t link);
    /// Ends the link with `reason` unless it is already ending; waits for the
    /// connection thread unless called on it. waitWhenEnding: wait also for a
    /// link that is ending by itself.
    void endLink(DisconnectReason reason, bool waitWhenEnding);
    void fail(DisconnectReason reason) { endLink(reason, false); }

    // The request queue and the socket's write side.
    void requireConnected() const;
    static BluetoothLE& connectedOwner(Characteristic const& characteristic);
    void enqueue(std::vector<Request> requests);
    void pushFront(Request request);
    void sendFront();
    void send(std::vector<uint8_t> const& pdu);

    // The PDU dispatcher.
    void dispatch(uint8_t const* pdu, size_t length);
    void onMtuRequest(uint8_t const* pdu, size_t length);
    void onNotification(uint8_t const* pdu, size_t length);
    void onIndication(uint8_t const* pdu, size_t length);
    void onMultipleNotification(uint8_t const* pdu, size_t length);
    void onAnswer(uint8_t const* pdu, size_t length);
    void deliver(uint16_t valueHandle, uint8_t const* value, size_t length);
    void onMtuAnswer(Request& request, uint8_t const* pdu, size_t length);
    void onReadAnswer(Request& request, uint8_t const* pdu, size_t length);
    void onWriteAnswer(Request& request, uint8_t const* pdu, size_t length);
    // Service discovery (bluetooth_le_discovery.cpp).
    void onDiscoveryAnswer(Request& request, uint8_t const* pdu, size_t length);

    BluetoothHost& host_;
    int adapter_ = -1;
    std::atomic<State> state_{State::Disconnected};
    std::atomic<uint16_t> mtu_{kDefaultMtu};
    std::vector<Service> services_;

    // Written by connect() before the connection thread starts.
    uint64_t address_ = 0;
    bool publicAddress_ = false;
    // Written before state_ turns Connected, read after.
    uint16_t hciHandle_ = 0;

    // The link's lifetime; threadMutex_ guards all but running_'s reads.
    std::mutex threadMutex_;
    std::condition_variable threadEnded_;
    std::thread thread_;
    std::atomic<bool> running_{false};
    DisconnectReason reason_ = DisconnectReason::LinkLost;
    uint64_t linksStarted_ = 0;
    uint64_t lastEndedLink_ = 0;
    unsigned liveThreads_ = 0;

    // Writers from any thread and the closing connection thread.
    std::mutex socketMutex_;
    int socket_ = -1;

    std::mutex mutex_;
    std::deque<Request> queue_;
    bool linkUp_ = false;     // requests are taken
    bool answering_ = false;  // an answer's handler runs: only it sends meanwhile

    std::mutex callbackMutex_;
    std::function<void()> connected_;
    std::function<void(DisconnectReason)> disconnected_;

    // Used by the connection thread only.
    std::array<uint8_t, kReceiveBufferSize> buffer_{};
};
