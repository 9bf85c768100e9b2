#include "att_server.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <optional>

#include "att_protocol.h"
#include "byte_io.h"

namespace sim {

using namespace att;

namespace {

// Access to an attribute's value.
constexpr uint8_t kReadable = 0x01;
constexpr uint8_t kWritable = 0x02;
constexpr uint8_t kWritableByCommand = 0x04;

// Configuration descriptor bits, and the property each needs.
struct ConfigurationBit {
    uint16_t bit;
    uint8_t property;
};
constexpr ConfigurationBit kConfigurationBits[] = {{0x0001, AttServer::kPropertyNotify},
                                                   {0x0002, AttServer::kPropertyIndicate}};
constexpr uint16_t kNotifyBit = 0x0001;

constexpr size_t kMaxValueLength = 512;
// The largest SDU of an LE channel; a PDU never exceeds it.
constexpr size_t kReceiveBufferSize = 65535;
constexpr int kSendWaitMs = 100;

std::vector<uint8_t> uuidBytes(BleUUID const& uuid) {
    std::vector<uint8_t> out;
    if (uuid.is16Bit()) {
        ByteWriter(out).write<uint16_t>(uuid.value16());
    } else {
        BleUUID::Bytes const bytes = uuid.wireBytes128();
        out.assign(bytes.begin(), bytes.end());
    }
    return out;
}

std::vector<uint8_t> errorResponse(uint8_t opcode, uint16_t handle, uint8_t code) {
    std::vector<uint8_t> pdu;
    ByteWriter(pdu).write<uint8_t>(kErrorResponse).write<uint8_t>(opcode).write<uint16_t>(handle).write<uint8_t>(code);
    return pdu;
}

}  // namespace

struct AttServer::Route {
    uint8_t opcode;
    size_t minLength;
    size_t maxLength;
    Pdu (AttServer::*handle)(uint8_t const* pdu, size_t length);
};

// Read By Type and Read By Group Type name their type with 2 or 16 bytes.
AttServer::Route const AttServer::kRoutes[] = {
    {kExchangeMtuRequest, 3, 3, &AttServer::exchangeMtu},
    {kFindInformationRequest, 5, 5, &AttServer::findInformation},
    {kReadByTypeRequest, 7, 21, &AttServer::readByType},
    {kReadRequest, 3, 3, &AttServer::read},
    {kReadBlobRequest, 5, 5, &AttServer::readBlob},
    {kReadByGroupTypeRequest, 7, 21, &AttServer::readByGroupType},
    {kWriteRequest, 3, SIZE_MAX, &AttServer::writeRequest},
    {kWriteCommand, 3, SIZE_MAX, &AttServer::writeCommand},
    {kHandleValueConfirmation, 1, 1, &AttServer::confirmation},
};

AttServer::AttServer(int socket, uint16_t serverMtu)
    : socket_(socket), serverMtu_(serverMtu), buffer_(kReceiveBufferSize) {}

AttServer::~AttServer() { ::close(socket_); }

void AttServer::addService(BleUUID const& uuid) {
    Attribute service(BleUUID(kPrimaryService), kReadable, uuidBytes(uuid));
    lastService_ = static_cast<uint16_t>(attributes_.size() + 1);
    service.groupEnd = lastService_;
    attributes_.push_back(std::move(service));
}

uint16_t AttServer::addCharacteristic(BleUUID const& uuid, uint8_t properties, ReadFunction read, WriteFunction write) {
    auto const declaration = static_cast<uint16_t>(attributes_.size() + 1);
    auto const valueHandle = static_cast<uint16_t>(declaration + 1);
    std::vector<uint8_t> declared;
    ByteWriter(declared).write<uint8_t>(properties).write<uint16_t>(valueHandle);
    std::vector<uint8_t> const uuidField = uuidBytes(uuid);
    declared.insert(declared.end(), uuidField.begin(), uuidField.end());
    append(Attribute(BleUUID(kCharacteristicDeclaration), kReadable, std::move(declared)));

    uint8_t access = 0;
    if (properties & kPropertyRead) access |= kReadable;
    if (properties & kPropertyWrite) access |= kWritable;
    if (properties & kPropertyWriteWithoutResponse) access |= kWritableByCommand;
    Attribute value(uuid, access);
    value.read = std::move(read);
    value.write = std::move(write);
    value.properties = properties;
    append(std::move(value));

    if (properties & (kPropertyNotify | kPropertyIndicate)) {
        Attribute configuration(BleUUID(kClientCharacteristicConfiguration), kReadable | kWritable);
        configuration.properties = properties;
        configuration.isConfiguration = true;
        uint16_t const handle = append(std::move(configuration));
        attributes_[valueHandle - 1].configuration = handle;
        configurations_[handle] = 0;
    }
    return valueHandle;
}

uint16_t AttServer::addDescriptor(BleUUID const& uuid, std::vector<uint8_t> value) {
    return append(Attribute(uuid, kReadable, std::move(value)));
}

uint16_t AttServer::append(Attribute attribute) {
    attributes_.push_back(std::move(attribute));
    auto const handle = static_cast<uint16_t>(attributes_.size());
    if (lastService_ != 0) attributes_[lastService_ - 1].groupEnd = handle;
    return handle;
}

AttServer::Attribute const* AttServer::find(uint16_t handle) const {
    if (handle == 0 || handle > attributes_.size()) return nullptr;
    return &attributes_[handle - 1];
}

uint16_t AttServer::configurationValue(uint16_t configuration) const {
    std::lock_guard lock(mutex_);
    auto const found = configurations_.find(configuration);
    return found == configurations_.end() ? 0 : found->second;
}

std::vector<uint8_t> AttServer::valueOf(uint16_t handle, Attribute const& attribute) const {
    if (attribute.isConfiguration) {
        std::vector<uint8_t> value;
        ByteWriter(value).write<uint16_t>(configurationValue(handle));
        return value;
    }
    std::vector<uint8_t> value = attribute.read ? attribute.read() : attribute.value;
    if (value.size() > kMaxValueLength) value.resize(kMaxValueLength);
    return value;
}

uint16_t AttServer::configurationHandle(uint16_t valueHandle) const {
    Attribute const* value = find(valueHandle);
    return value == nullptr ? 0 : value->configuration;
}

bool AttServer::notificationsEnabled(uint16_t valueHandle) const {
    uint16_t const configuration = configurationHandle(valueHandle);
    return configuration != 0 && (configurationValue(configuration) & kNotifyBit) != 0;
}

bool AttServer::receive() {
    if (closed()) return false;
    ssize_t got;
    do {
        got = ::recv(socket_, buffer_.data(), buffer_.size(), MSG_DONTWAIT);
    } while (got < 0 && errno == EINTR);
    if (got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return true;
    // An empty read is the client hanging up: an ATT PDU is never empty.
    if (got <= 0) {
        closed_.store(true);
        return false;
    }
    Pdu const response = answer(buffer_.data(), static_cast<size_t>(got));
    if (!response.empty()) send(response);
    return !closed();
}

AttServer::Pdu AttServer::answer(uint8_t const* pdu, size_t length) {
    uint8_t const opcode = pdu[0];
    bool const expectsAnswer = (opcode & kCommandFlag) == 0 && opcode != kHandleValueConfirmation;
    for (Route const& route : kRoutes) {
        if (route.opcode != opcode) continue;
        if (length < route.minLength || length > route.maxLength)
            return expectsAnswer ? errorResponse(opcode, 0, kInvalidPdu) : Pdu{};
        return (this->*route.handle)(pdu, length);
    }
    return expectsAnswer ? errorResponse(opcode, 0, kRequestNotSupported) : Pdu{};
}

AttServer::Pdu AttServer::exchangeMtu(uint8_t const* pdu, size_t) {
    auto const offered = readLe<uint16_t>(pdu + 1);
    mtu_.store(std::max(kMinimumMtu, std::min(offered, serverMtu_)));
    Pdu response;
    ByteWriter(response).write<uint8_t>(kExchangeMtuResponse).write<uint16_t>(serverMtu_);
    return response;
}

bool AttServer::checkRange(uint8_t opcode, uint16_t start, uint16_t end, Pdu& error) const {
    if (start != 0 && start <= end) return true;
    error = errorResponse(opcode, start, kInvalidHandle);
    return false;
}

AttServer::Pdu AttServer::findInformation(uint8_t const* pdu, size_t) {
    auto const start = readLe<uint16_t>(pdu + 1);
    auto const end = readLe<uint16_t>(pdu + 3);
    Pdu response;
    if (!checkRange(pdu[0], start, end, response)) return response;
    size_t const room = mtu() - 2u;
    std::optional<bool> shortForm;
    Pdu entries;
    for (size_t handle = start; handle <= end && handle <= attributes_.size(); ++handle) {
        BleUUID const& type = attributes_[handle - 1].type;
        // One answer holds one UUID width, that of its first entry.
        if (shortForm.value_or(type.is16Bit()) != type.is16Bit()) break;
        std::vector<uint8_t> const uuid = uuidBytes(type);
        if (entries.size() + 2 + uuid.size() > room) break;
        shortForm = type.is16Bit();
        ByteWriter(entries).write<uint16_t>(static_cast<uint16_t>(handle)).writeBytes(uuid.data(), uuid.size());
    }
    if (!shortForm) return errorResponse(pdu[0], start, kAttributeNotFound);
    ByteWriter(response).write<uint8_t>(kFindInformationResponse).write<uint8_t>(*shortForm ? 0x01 : 0x02);
    response.insert(response.end(), entries.begin(), entries.end());
    return response;
}

AttServer::Pdu AttServer::readByType(uint8_t const* pdu, size_t length) {
    auto const start = readLe<uint16_t>(pdu + 1);
    auto const end = readLe<uint16_t>(pdu + 3);
    std::optional<BleUUID> const type = BleUUID::fromWire(pdu + 5, length - 5);
    if (!type) return errorResponse(pdu[0], 0, kInvalidPdu);
    Pdu response;
    if (!checkRange(pdu[0], start, end, response)) return response;
    size_t const room = mtu() - 2u;
    size_t const longest = std::min<size_t>(mtu() - 4u, 253);
    std::optional<size_t> entrySize;
    Pdu entries;
    for (size_t handle = start; handle <= end && handle <= attributes_.size(); ++handle) {
        Attribute const& attribute = attributes_[handle - 1];
        if (!(attribute.type == *type)) continue;
        if (!(attribute.access & kReadable)) {
            if (!entrySize) return errorResponse(pdu[0], static_cast<uint16_t>(handle), kReadNotPermitted);
            break;
        }
        std::vector<uint8_t> value = valueOf(static_cast<uint16_t>(handle), attribute);
        if (value.size() > longest) value.resize(longest);
        // One answer holds entries of one size, that of its first.
        if (entrySize.value_or(2 + value.size()) != 2 + value.size()) break;
        if (entries.size() + 2 + value.size() > room) break;
        entrySize = 2 + value.size();
        ByteWriter(entries).write<uint16_t>(static_cast<uint16_t>(handle)).writeBytes(value.data(), value.size());
    }
    if (!entrySize) return errorResponse(pdu[0], start, kAttributeNotFound);
    ByteWriter(response).write<uint8_t>(kReadByTypeResponse).write<uint8_t>(static_cast<uint8_t>(*entrySize));
    response.insert(response.end(), entries.begin(), entries.end());
    return response;
}

AttServer::Pdu AttServer::readByGroupType(uint8_t const* pdu, size_t length) {
    auto const start = readLe<uint16_t>(pdu + 1);
    auto const end = readLe<uint16_t>(pdu + 3);
    std::optional<BleUUID> const type = BleUUID::fromWire(pdu + 5, length - 5);
    if (!type) return errorResponse(pdu[0], 0, kInvalidPdu);
    Pdu response;
    if (!checkRange(pdu[0], start, end, response)) return response;
    if (!(*type == BleUUID(kPrimaryService)) && !(*type == BleUUID(kSecondaryService)))
        return errorResponse(pdu[0], start, kUnsupportedGroupType);
    size_t const room = mtu() - 2u;
    std::optional<size_t> entrySize;
    Pdu entries;
    for (size_t handle = start; handle <= end && handle <= attributes_.size(); ++handle) {
        Attribute const& attribute = attributes_[handle - 1];
        if (!(attribute.type == *type)) continue;
        size_t const size = 4 + attribute.value.size();
        // One answer holds entries of one size: services of one UUID width.
        if (entrySize.value_or(size) != size || entries.size() + size > room) break;
        entrySize = size;
        ByteWriter(entries).write<uint16_t>(static_cast<uint16_t>(handle)).write<uint16_t>(attribute.groupEnd);
        entries.insert(entries.end(), attribute.value.begin(), attribute.value.end());
    }
    if (!entrySize) return errorResponse(pdu[0], start, kAttributeNotFound);
    ByteWriter(response).write<uint8_t>(kReadByGroupTypeResponse).write<uint8_t>(static_cast<uint8_t>(*entrySize));
    response.insert(response.end(), entries.begin(), entries.end());
    return response;
}

AttServer::Pdu AttServer::read(uint8_t const* pdu, size_t) {
    return readFrom(kReadRequest, kReadResponse, readLe<uint16_t>(pdu + 1), 0);
}

AttServer::Pdu AttServer::readBlob(uint8_t const* pdu, size_t) {
    return readFrom(kReadBlobRequest, kReadBlobResponse, readLe<uint16_t>(pdu + 1), readLe<uint16_t>(pdu + 3));
}

AttServer::Pdu AttServer::readFrom(uint8_t request, uint8_t responseOpcode, uint16_t handle, size_t offset) {
    Attribute const* attribute = find(handle);
    if (attribute == nullptr) return errorResponse(request, handle, kInvalidHandle);
    if (!(attribute->access & kReadable)) return errorResponse(request, handle, kReadNotPermitted);
    std::vector<uint8_t> const value = valueOf(handle, *attribute);
    if (offset > value.size()) return errorResponse(request, handle, kInvalidOffset);
    size_t const size = std::min<size_t>(value.size() - offset, mtu() - 1u);
    Pdu response{responseOpcode};
    response.insert(response.end(), value.begin() + static_cast<std::ptrdiff_t>(offset),
                    value.begin() + static_cast<std::ptrdiff_t>(offset + size));
    return response;
}

AttServer::Pdu AttServer::writeRequest(uint8_t const* pdu, size_t length) {
    auto const handle = readLe<uint16_t>(pdu + 1);
    uint8_t const* value = pdu + 3;
    size_t const size = length - 3;
    Attribute const* attribute = find(handle);
    if (attribute == nullptr) return errorResponse(pdu[0], handle, kInvalidHandle);
    if (!(attribute->access & kWritable)) return errorResponse(pdu[0], handle, kWriteNotPermitted);
    if (size > kMaxValueLength) return errorResponse(pdu[0], handle, kInvalidAttributeValueLength);
    if (attribute->isConfiguration) {
        if (size != 2) return errorResponse(pdu[0], handle, kInvalidAttributeValueLength);
        uint16_t unsupported = readLe<uint16_t>(value);
        for (ConfigurationBit const& bit : kConfigurationBits)
            if (attribute->properties & bit.property) unsupported &= static_cast<uint16_t>(~bit.bit);
        if (unsupported != 0) return errorResponse(pdu[0], handle, kValueNotAllowed);
        std::lock_guard lock(mutex_);
        configurations_[handle] = readLe<uint16_t>(value);
    } else if (attribute->write) {
        attribute->write(value, size);
    }
    return Pdu{kWriteResponse};
}

AttServer::Pdu AttServer::writeCommand(uint8_t const* pdu, size_t length) {
    Attribute const* attribute = find(readLe<uint16_t>(pdu + 1));
    if (attribute != nullptr && (attribute->access & kWritableByCommand) && attribute->write)
        attribute->write(pdu + 3, length - 3);
    return {};
}

AttServer::Pdu AttServer::confirmation(uint8_t const*, size_t) { return {}; }

bool AttServer::notify(uint16_t valueHandle, uint8_t const* data, size_t length) {
    if (length + 3 > mtu() || !notificationsEnabled(valueHandle)) return false;
    Pdu pdu;
    ByteWriter(pdu).write<uint8_t>(kHandleValueNotification).write<uint16_t>(valueHandle).writeBytes(data, length);
    return send(pdu);
}

bool AttServer::send(Pdu const& pdu) {
    // Never blocks for good: a client that stops reading must not keep close()
    // from being noticed.
    while (!closed()) {
        ssize_t const sent = ::send(socket_, pdu.data(), pdu.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent >= 0) return true;
        if (errno == EINTR) continue;
        if (errno != EAGAIN && errno != EWOULDBLOCK) return false;
        pollfd wait{socket_, POLLOUT, 0};
        ::poll(&wait, 1, kSendWaitMs);
    }
    return false;
}

void AttServer::close() {
    closed_.store(true);
    ::shutdown(socket_, SHUT_RDWR);
}

}  // namespace sim
