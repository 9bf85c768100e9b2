#include <algorithm>
#include <iterator>
#include <memory>
#include <optional>

#include "att_protocol.h"
#include "bluetooth_le.h"
#include "byte_io.h"

using namespace att;

namespace {

constexpr uint16_t kFirstHandle = 0x0001;
constexpr uint16_t kLastHandle = 0xFFFF;
// An answer: opcode, entry length, entries.
constexpr size_t kEntriesAt = 2;

// What one step's answers look like: the entry lengths a 16-bit and a
// 128-bit UUID give, and where an entry holds the handle that paging goes on
// from (a group's end handle, an attribute's own handle).
struct PageShape {
    uint16_t type;
    uint8_t entryLengths[2];
    size_t lastHandleAt;
};

constexpr PageShape kPageShapes[] = {
    {kPrimaryService, {6, 20}, 2},
    {kCharacteristicDeclaration, {7, 21}, 0},
    {kClientCharacteristicConfiguration, {4, 4}, 0},
};

// The handle the page ends at; nothing for a page that is not a whole number
// of entries of a length its step takes.
std::optional<uint16_t> lastHandleOfPage(uint16_t type, uint8_t const* pdu, size_t length) {
    auto const shape = std::find_if(std::begin(kPageShapes), std::end(kPageShapes),
                                    [type](PageShape const& s) { return s.type == type; });
    if (shape == std::end(kPageShapes) || length <= kEntriesAt) return std::nullopt;
    uint8_t const entryLength = pdu[1];
    size_t const entriesLength = length - kEntriesAt;
    if (std::find(std::begin(shape->entryLengths), std::end(shape->entryLengths), entryLength) ==
            std::end(shape->entryLengths) ||
        entriesLength % entryLength != 0)
        return std::nullopt;
    return readLe<uint16_t>(pdu + length - entryLength + shape->lastHandleAt);
}

template <class Visit>
void forEachEntry(uint8_t const* pdu, size_t length, Visit visit) {
    uint8_t const entryLength = pdu[1];
    for (size_t at = kEntriesAt; at + entryLength <= length; at += entryLength) visit(pdu + at, entryLength);
}

struct Declaration {
    uint16_t handle;
    uint8_t properties;
    uint16_t valueHandle;
    BleUUID uuid;
};

// What the three steps gathered, shared by their requests.
struct Discovery {
    std::vector<BluetoothLE::Service> services;
    std::vector<Declaration> declarations;
    std::vector<uint16_t> descriptors;
};

// A characteristic's attributes run from its declaration to the next
// declaration or the end of its service; a descriptor in that range is its.
std::vector<BluetoothLE::Service> joinServices(Discovery discovery, BluetoothLE* owner) {
    auto& services = discovery.services;
    std::sort(services.begin(), services.end(),
              [](auto const& a, auto const& b) { return a.startHandle < b.startHandle; });
    std::sort(discovery.declarations.begin(), discovery.declarations.end(),
              [](auto const& a, auto const& b) { return a.handle < b.handle; });
    std::sort(discovery.descriptors.begin(), discovery.descriptors.end());
    for (BluetoothLE::Service& service : services) {
        for (Declaration const& declaration : discovery.declarations) {
            if (declaration.handle < service.startHandle || declaration.handle > service.endHandle) continue;
            BluetoothLE::Characteristic characteristic;
            characteristic.declarationHandle = declaration.handle;
            characteristic.properties = declaration.properties;
            characteristic.valueHandle = declaration.valueHandle;
            characteristic.uuid = declaration.uuid;
            characteristic.owner = owner;
            service.characteristics.push_back(std::move(characteristic));
        }
        auto& characteristics = service.characteristics;
        for (size_t i = 0; i < characteristics.size(); ++i) {
            // In int: a next declaration at the same handle, 0 included, leaves
            // an empty range instead of one that wraps round to 0xFFFF.
            int const first = characteristics[i].declarationHandle;
            int const last =
                i + 1 < characteristics.size() ? characteristics[i + 1].declarationHandle - 1 : int{service.endHandle};
            auto const descriptor = std::find_if(discovery.descriptors.begin(), discovery.descriptors.end(),
                                                 [first, last](uint16_t h) { return h > first && h <= last; });
            if (descriptor != discovery.descriptors.end()) characteristics[i].cccHandle = *descriptor;
        }
    }
    return std::move(services);
}

std::vector<uint8_t> discoveryRequest(uint8_t opcode, uint16_t type) {
    std::vector<uint8_t> pdu;
    ByteWriter(pdu)
        .write<uint8_t>(opcode)
        .write<uint16_t>(kFirstHandle)
        .write<uint16_t>(kLastHandle)
        .write<uint16_t>(type);
    return pdu;
}

}  // namespace

void BluetoothLE::discoverServices(Done done) {
    auto const discovery = std::make_shared<Discovery>();
    std::vector<Request> steps(3);
    steps[0].pdu = discoveryRequest(kReadByGroupTypeRequest, kPrimaryService);
    steps[0].onPage = [discovery](uint8_t const* pdu, size_t length) {
        forEachEntry(pdu, length, [&](uint8_t const* entry, size_t size) {
            Service service;
            service.startHandle = readLe<uint16_t>(entry);
            service.endHandle = readLe<uint16_t>(entry + 2);
            service.uuid = *BleUUID::fromWire(entry + 4, size - 4);
            discovery->services.push_back(std::move(service));
        });
    };
    steps[1].pdu = discoveryRequest(kReadByTypeRequest, kCharacteristicDeclaration);
    steps[1].onPage = [discovery](uint8_t const* pdu, size_t length) {
        forEachEntry(pdu, length, [&](uint8_t const* entry, size_t size) {
            discovery->declarations.push_back({readLe<uint16_t>(entry), entry[2], readLe<uint16_t>(entry + 3),
                                               *BleUUID::fromWire(entry + 5, size - 5)});
        });
    };
    steps[2].pdu = discoveryRequest(kReadByTypeRequest, kClientCharacteristicConfiguration);
    steps[2].onPage = [discovery](uint8_t const* pdu, size_t length) {
        forEachEntry(pdu, length,
                     [&](uint8_t const* entry, size_t) { discovery->descriptors.push_back(readLe<uint16_t>(entry)); });
    };
    steps[2].onComplete = [this, discovery, done = std::move(done)] {
        services_ = joinServices(std::move(*discovery), this);
        if (done) done();
    };
    enqueue(std::move(steps));
}

// Each step pages through the whole handle range: a page that ends before
// the range does goes back to the front of the queue, starting one past it.
void BluetoothLE::onDiscoveryAnswer(Request& request, uint8_t const* pdu, size_t length) {
    if (pdu[0] == kErrorResponse) {
        if (pdu[4] != kAttributeNotFound) {
            fail(DisconnectReason::ErrorResponse);
        } else if (request.onComplete) {
            request.onComplete();
        }
        return;
    }
    uint16_t const type = readLe<uint16_t>(request.pdu.data() + 5);
    std::optional<uint16_t> const last = lastHandleOfPage(type, pdu, length);
    if (!last) {
        fail(DisconnectReason::ProtocolViolation);
        return;
    }
    request.onPage(pdu, length);
    if (*last >= readLe<uint16_t>(request.pdu.data() + 3)) {
        if (request.onComplete) request.onComplete();
        return;
    }
    writeLe<uint16_t>(request.pdu.data() + 1, static_cast<uint16_t>(*last + 1));
    request.sent = false;
    pushFront(std::move(request));
}
