// A Bluetooth LE device speaks to the GATT client in ATT PDUs, and a hostile
// or broken one may send anything. Each input is one link over a socket pair,
// the test playing the device: the input is a sequence of steps, either a PDU
// to send (a kind byte below kFirstOperation, a length byte, the bytes) or an
// operation of the client (discovery, a read, a write, an MTU exchange,
// notifications) whose answers the following PDUs may be.
//
// Whatever comes, the client sends only well-formed PDUs, never has two
// requests out at once, confirms every indication, answers every MTU request
// with its own MTU, keeps its MTU within 23 and 512, reads no more than came,
// joins discovered characteristics into their services, and ends the link
// once, for a reason the device gave.
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <vector>

#include "att_protocol.h"
#include "bluetooth_le.h"
#include "byte_io.h"
#include "fuzz_check.h"
#include "socket_pair_bluetooth_host.h"

namespace {

using Reason = BluetoothLE::DisconnectReason;
using namespace att;

constexpr uint8_t kFirstOperation = 5;
constexpr int kPatienceMs = 10000;
constexpr size_t kLargestPdu = 1024;

uint8_t opcodeOf(uint8_t const* pdu) { return pdu[0] & kOpcodeMask; }

// What the client may send: a request of its operations or a reply to the device.
bool wellFormed(uint8_t const* pdu, size_t length) {
    if (length == 0 || length > BluetoothLE::kMaxMtu) return false;
    switch (pdu[0]) {
        case kExchangeMtuRequest:
            return length == 3;
        case kExchangeMtuResponse:
            return length == 3 && readLe<uint16_t>(pdu + 1) == BluetoothLE::kMaxMtu;
        case kReadByTypeRequest:
        case kReadByGroupTypeRequest: {
            if (length != 7) return false;
            uint16_t const type = readLe<uint16_t>(pdu + 5);
            return readLe<uint16_t>(pdu + 1) != 0 && readLe<uint16_t>(pdu + 3) == 0xFFFF &&
                   (pdu[0] == kReadByGroupTypeRequest
                        ? type == kPrimaryService
                        : type == kCharacteristicDeclaration || type == kClientCharacteristicConfiguration);
        }
        case kReadRequest:
            return length == 3;
        case kReadBlobRequest:
            return length == 5;
        case kWriteRequest:
        case kWriteCommand:
            return length >= 3;
        case kPrepareWriteRequest:
            return length >= 6;
        case kExecuteWriteRequest:
            return length == 2 && pdu[1] == 0x01;
        case kHandleValueConfirmation:
            return length == 1;
        default:
            return false;
    }
}

bool isRequest(uint8_t opcode) {
    return opcode != kExchangeMtuResponse && opcode != kHandleValueConfirmation && opcode != kWriteCommand;
}

// A PDU of the device that the client takes as the answer to its request.
bool answersRequest(uint8_t const* pdu, size_t length) {
    if (length == 0) return false;
    uint8_t const opcode = opcodeOf(pdu);
    return opcode != kExchangeMtuRequest && opcode != kHandleValueNotification && opcode != kHandleValueIndication &&
           opcode != kMultipleHandleValueNotification;
}

/// One client and the device's end of its current link.
class Link {
public:
    Link() {
        client_.setConnectedCallback([this] {
            std::lock_guard lock(mutex_);
            connected_ = true;
            changed_.notify_all();
        });
        client_.setDisconnectedCallback([this](Reason reason) {
            std::lock_guard lock(mutex_);
            ++disconnects_;
            reason_ = reason;
            changed_.notify_all();
        });
    }

    void open() {
        {
            std::lock_guard lock(mutex_);
            connected_ = false;
            disconnects_ = 0;
        }
        requests_ = answers_ = indications_ = confirmations_ = mtuRequests_ = mtuResponses_ = 0;
        readBytesSent_ = 0;
        ended_ = false;
        client_.connect(0xC25A4C000001, true);
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return connected_ || disconnects_ > 0; });
        fuzzCheck(connected_, "the link comes up");
    }

    /// Hangs up, the quickest end of a link, and checks that it ended once,
    /// for a fault of the device's if it ended before.
    void close() {
        bool const endedBefore = ended_;
        ::close(peer_.exchange(-1));
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return disconnects_ > 0; });
        fuzzCheck(disconnects_ == 1, "the link ends once");
        fuzzCheck(endedBefore ? reason_ == Reason::ErrorResponse || reason_ == Reason::ProtocolViolation
                              : reason_ == Reason::LinkLost,
                  "the link ends for the device's fault or when it hangs up");
    }

    bool ended() const { return ended_; }

    void send(uint8_t const* pdu, size_t length) {
        drain(0);
        if (answersRequest(pdu, length)) {
            ++answers_;
            uint8_t const opcode = opcodeOf(pdu);
            if (opcode == kReadResponse || opcode == kReadBlobResponse) readBytesSent_ += length - 1;
        }
        if (length > 0 && opcodeOf(pdu) == kHandleValueIndication && length >= 3) ++indications_;
        if (length == 3 && opcodeOf(pdu) == kExchangeMtuRequest) ++mtuRequests_;
        // libFuzzer's timers interrupt calls; a PDU counted above must go out.
        while (::send(peer_, pdu, length, MSG_NOSIGNAL) < 0 && errno == EINTR) {
        }
    }

    /// Waits until the client has taken everything sent so far: an indication
    /// of a handle no characteristic has, confirmed once all before it are.
    void settle() {
        if (ended_) return;
        uint8_t const probe[] = {kHandleValueIndication, 0x00, 0x00};
        send(probe, sizeof probe);
        while (!ended_ && (confirmations_ < indications_ || mtuResponses_ < mtuRequests_)) drain(kPatienceMs);
        fuzzCheck(client_.mtu() >= BluetoothLE::kDefaultMtu && client_.mtu() <= BluetoothLE::kMaxMtu,
                  "the MTU stays within 23 and 512");
    }

    BluetoothLE& client() { return client_; }
    /// Bytes of read answers sent on this link: no read gives more.
    size_t readBytesSent() const { return readBytesSent_.load(); }

    void setPeer(int peer) { peer_ = peer; }

private:
    // Takes what the client sent, waiting up to `patienceMs` for the first PDU.
    void drain(int patienceMs) {
        uint8_t pdu[kLargestPdu];
        for (int wait = patienceMs;; wait = 0) {
            pollfd ready{peer_, POLLIN, 0};
            int events;
            do {
                events = ::poll(&ready, 1, wait);
            } while (events < 0 && errno == EINTR);
            fuzzCheck(events >= 0, "the device's end can be polled");
            fuzzCheck(events > 0 || wait == 0, "the client answers within ten seconds");
            if (events == 0) return;
            ssize_t const length = ::recv(peer_, pdu, sizeof pdu, MSG_DONTWAIT);
            if (length <= 0) {
                ended_ = length == 0;
                return;
            }
            take(pdu, static_cast<size_t>(length));
        }
    }

    void take(uint8_t const* pdu, size_t length) {
        fuzzCheck(wellFormed(pdu, length), "the client sends only well-formed PDUs");
        if (pdu[0] == kHandleValueConfirmation) ++confirmations_;
        if (pdu[0] == kExchangeMtuResponse) ++mtuResponses_;
        if (isRequest(pdu[0])) ++requests_;
        fuzzCheck(requests_ <= answers_ + 1, "one request at a time");
    }

    sim::SocketPairBluetoothHost host_{[this](int peer, uint64_t, bool) { setPeer(peer); }};
    BluetoothLE client_{host_};
    std::mutex mutex_;
    std::condition_variable changed_;
    bool connected_ = false;
    int disconnects_ = 0;
    Reason reason_ = Reason::Reserved;

    // The test's thread only, but for peer_, which the connection thread sets before the link comes up.
    std::atomic<int> peer_{-1};
    bool ended_ = false;
    size_t requests_ = 0, answers_ = 0, indications_ = 0, confirmations_ = 0, mtuRequests_ = 0, mtuResponses_ = 0;
    std::atomic<size_t> readBytesSent_{0};
};

// Run on the connection thread when discovery ends.
void checkServices(std::vector<BluetoothLE::Service> const& services, BluetoothLE const* owner) {
    for (size_t i = 0; i < services.size(); ++i) {
        auto const& service = services[i];
        fuzzCheck(i == 0 || services[i - 1].startHandle <= service.startHandle, "services are in handle order");
        uint16_t previous = 0;
        for (auto const& characteristic : service.characteristics) {
            fuzzCheck(characteristic.owner == owner, "a characteristic belongs to its client");
            fuzzCheck(characteristic.declarationHandle >= service.startHandle &&
                          characteristic.declarationHandle <= service.endHandle &&
                          characteristic.declarationHandle >= previous,
                      "characteristics lie in their service, in handle order");
            fuzzCheck(characteristic.cccHandle == 0 || (characteristic.cccHandle > characteristic.declarationHandle &&
                                                        characteristic.cccHandle <= service.endHandle),
                      "a configuration descriptor follows its characteristic in its service");
            previous = characteristic.declarationHandle;
        }
    }
}

// Starts one of the client's operations; the link may have ended meanwhile.
void operate(Link& link, uint8_t kind, uint8_t const* args, size_t length) {
    BluetoothLE& client = link.client();
    BluetoothLE::Characteristic characteristic;
    characteristic.owner = &client;
    characteristic.valueHandle = length >= 2 ? readLe<uint16_t>(args) : 0x0010;
    characteristic.cccHandle = static_cast<uint16_t>(characteristic.valueHandle + 1);
    characteristic.properties = 0x3E;
    try {
        switch (kind) {
            case kFirstOperation:
                client.discoverServices([&client] { checkServices(client.services(), &client); });
                break;
            case kFirstOperation + 1:
                characteristic.read([&link](uint8_t const*, size_t size) {
                    fuzzCheck(size <= link.readBytesSent(), "a read gives no more than came");
                });
                break;
            default:
                switch (length > 2 ? args[2] % 4 : 0) {
                    case 0:
                        client.exchangeMtu(length > 4 ? readLe<uint16_t>(args + 3) : 0, {});
                        break;
                    case 1:
                        characteristic.write(std::vector<uint8_t>(args + std::min<size_t>(length, 3), args + length),
                                             {});
                        break;
                    case 2:
                        characteristic.setNotify(length > 3 && (args[3] & 1), length > 3 && (args[3] & 2), {});
                        break;
                    default:
                        characteristic.writeWithoutResponse(args, length);
                        break;
                }
        }
    } catch (BluetoothLE::Exception const&) {
        // The link ended under the operation, or a value too long for the MTU.
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    static Link link;
    link.open();
    for (size_t at = 0; at + 1 < size && !link.ended();) {
        uint8_t const kind = data[at] % 8;
        size_t const length = std::min<size_t>(data[at + 1], size - at - 2);
        uint8_t const* body = data + at + 2;
        at += 2 + length;
        if (kind < kFirstOperation) {
            link.send(body, length);
        } else {
            // Operations start in step with the PDUs, so that an input replays the same.
            link.settle();
            operate(link, kind, body, length);
        }
    }
    link.settle();
    link.close();
    return 0;
}

// A discovery of one service with one characteristic and its descriptor, a
// long read, an MTU exchange, notifications of every kind, and a long write.
extern "C" void zelmorFuzzSeeds(std::vector<std::vector<uint8_t>>& seeds) {
    std::vector<uint8_t> seed;
    auto const step = [&seed](uint8_t kind, std::vector<uint8_t> const& body) {
        seed.push_back(kind);
        seed.push_back(static_cast<uint8_t>(body.size()));
        seed.insert(seed.end(), body.begin(), body.end());
    };
    auto const pdu = [&step](std::vector<uint8_t> const& body) { step(0, body); };
    step(kFirstOperation, {});
    pdu({kReadByGroupTypeResponse, 6, 0x01, 0x00, 0x05, 0x00, 0x0F, 0x18});
    pdu({kErrorResponse, kReadByGroupTypeRequest, 0x06, 0x00, kAttributeNotFound});
    pdu({kReadByTypeResponse, 7, 0x02, 0x00, 0x3A, 0x03, 0x00, 0x19, 0x2A});
    pdu({kErrorResponse, kReadByTypeRequest, 0x04, 0x00, kAttributeNotFound});
    pdu({kReadByTypeResponse, 4, 0x04, 0x00, 0x00, 0x00});
    pdu({kErrorResponse, kReadByTypeRequest, 0x05, 0x00, kAttributeNotFound});
    seeds.push_back(seed);

    seed.clear();
    step(kFirstOperation + 1, {0x03, 0x00});
    std::vector<uint8_t> full(BluetoothLE::kDefaultMtu, 0x61);
    full[0] = kReadResponse;
    pdu(full);
    pdu({kReadBlobResponse, 0x62, 0x63});
    step(kFirstOperation + 2, {0x00, 0x00, 0x00, 0xF7, 0x00});
    pdu({kExchangeMtuResponse, 0xF7, 0x00});
    pdu({kHandleValueNotification, 0x03, 0x00, 0x01, 0x02});
    pdu({kHandleValueIndication, 0x03, 0x00, 0x03});
    pdu({kMultipleHandleValueNotification, 0x03, 0x00, 0x01, 0x00, 0x04, 0x07, 0x00, 0x00, 0x00});
    pdu({kExchangeMtuRequest, 0x40, 0x00});
    seeds.push_back(seed);

    seed.clear();
    std::vector<uint8_t> value(36, 0x33);
    value[0] = 0x03;
    value[1] = 0x00;
    value[2] = 1;
    step(kFirstOperation + 2, value);
    pdu({kPrepareWriteRequest + 1, 0x03, 0x00, 0x00, 0x00});
    pdu({kPrepareWriteRequest + 1, 0x03, 0x00, 0x12, 0x00});
    pdu({kExecuteWriteRequest + 1});
    step(kFirstOperation + 2, {0x03, 0x00, 2, 3});
    pdu({kWriteResponse});
    step(kFirstOperation + 2, {0x03, 0x00, 3, 0x44});
    pdu({kErrorResponse, kWriteRequest, 0x03, 0x00, kWriteNotPermitted});
    seeds.push_back(seed);
}
